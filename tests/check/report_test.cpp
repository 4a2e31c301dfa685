// SPDX-License-Identifier: Apache-2.0
// What gentl-check writes: JUnit's XML, and a program in C that shows a failure again.
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/xml_tree.h"

#include <gtest/gtest.h>

using namespace nq::test;

namespace
{

const std::string kProducer = NQ_FAULTY_FOLDER "/nq_faulty_whole.cti";

TEST(CheckReport, JUnitCountsAndNamesWhatFailed)
{
    const TemporaryFolder folder;
    const std::string path = folder.Path() + "/junit.xml";
    RunProgram({NQ_CHECK_PATH, kProducer, "--only", "BF-*", "--junit", path}, {"NQ_FAULTS=queue_twice"});
    const XmlNode root = ParseXml(BytesOf(path));
    const XmlNode& suite = *root.Elements().front();
    EXPECT_EQ(suite.Attribute("tests"), "11");
    EXPECT_EQ(suite.Attribute("failures"), "1");
    EXPECT_EQ(suite.Attribute("skipped"), "0");
    size_t failed = 0;
    for (const XmlNode* one : suite.Elements())
    {
        const bool broken = !one->Elements().empty();
        failed += broken ? 1 : 0;
        EXPECT_EQ(broken, one->Attribute("name").starts_with("BF-008")) << one->Attribute("name");
    }
    EXPECT_EQ(failed, 1U);
}

TEST(CheckReport, JUnitTellsOfAProducerThatCannotBeLoaded)
{
    const TemporaryFolder folder;
    const std::string path = folder / "junit.xml";
    RunProgram({NQ_CHECK_PATH, NQ_SOURCE_DIR "/README.md", "--junit", path});
    const XmlNode root = ParseXml(BytesOf(path));
    const XmlNode& suite = *root.Elements().front();
    EXPECT_EQ(suite.Attribute("tests"), "1");
    EXPECT_EQ(suite.Attribute("errors"), "1");
    const XmlNode& error = *suite.Elements().front()->Elements().front();
    EXPECT_TRUE(error.Attribute("message").starts_with("cannot be loaded: ")) << error.Attribute("message");
}

TEST(CheckReport, AProgramInCShowsTheFailureAgain)
{
    const TemporaryFolder folder;
    const Outcome check = RunProgram({NQ_CHECK_PATH, kProducer, "--repro", "BF-008"}, {"NQ_FAULTS=queue_twice"});
    ASSERT_EQ(check.exitCode, 1) << check.output;
    const std::string source = folder.Path() + "/again.c";
    const std::string program = folder.Path() + "/again";
    std::ofstream(source) << check.output;
    const Outcome compiled =
        RunProgram({"cc", "-Wall", "-Werror", "-I", NQ_SOURCE_DIR "/include", "-o", program, source});
    ASSERT_EQ(compiled.exitCode, 0) << compiled.output << check.output;
    const std::string twice = "DSQueueBuffer -> 0\nDSQueueBuffer -> ";
    const Outcome faulty = RunProgram({program, kProducer}, {"NQ_FAULTS=queue_twice"});
    EXPECT_NE(faulty.output.find(twice + "0"), std::string::npos) << faulty.output;
    const Outcome clean = RunProgram({program, kProducer});
    EXPECT_NE(clean.output.find(twice + "-1004"), std::string::npos) << clean.output;
}

} // namespace
