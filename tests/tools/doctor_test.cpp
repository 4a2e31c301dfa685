// SPDX-License-Identifier: Apache-2.0
// nq-gev doctor: producers, forms of its output, its table and what covers it; and nq-gev report.
#include "support/doctor.h"
#include "support/json_schema.h"
#include "support/source_text.h"
#include "support/virtual_camera.h"

#include <algorithm>

namespace
{

using namespace nq::test;
using testing::HasSubstr;
using testing::Not;

namespace fs = std::filesystem;

/// The doctor with a folder of producers, and what else is in the environment.
Outcome WithProducers(const std::string& folder, std::vector<std::string> environment = {},
                      const std::vector<std::string>& arguments = {})
{
    environment.push_back("GENICAM_GENTL64_PATH=" + folder);
    return RunProgram(Joined({NQ_TOOL_PATH, "--timeout", "100", "doctor"}, arguments), environment);
}

TEST(DoctorProducers, ThatWorkAreRight)
{
    const TemporaryFolder folder;
    fs::create_symlink(NQ_CTI_PATH, folder / "ours.cti");
    const Outcome doctor = WithProducers(folder.Path(), {"NQ_GEV_TL_STANDARD=1"});
    EXPECT_THAT(doctor.output, Right("producer.path", "GENICAM_GENTL64_PATH leads to 1 .cti\n"));
    EXPECT_THAT(doctor.output, Right("producer.libraries", folder / "ours.cti" + ": all are there\n"));
    EXPECT_THAT(doctor.output, Right("producer.load", folder / "ours.cti" + ": NQGenTLGevRDMA 2.5.5, GenTL 1.5\n"));
    EXPECT_THAT(doctor.output, Right("producer.answers", "the standard's (NQ_GEV_TL_STANDARD=1)\n"));
}

TEST(DoctorProducers, ThatAreNoLibrariesOrLackOneAreWrong)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "broken.cti") << "no library";
    Shell("cd '" + folder.Path() +
          "' && cc -shared -o libnqabsent1.so.2 -Wl,-soname,libnqabsent1.so.2 -x c /dev/null && "
          "cc -shared -o lacking.cti -x c /dev/null -Wl,--no-as-needed -x none libnqabsent1.so.2 && "
          "rm libnqabsent1.so.2");
    const Outcome doctor = WithProducers(folder.Path());
    EXPECT_EQ(doctor.exitCode, 1) << doctor.output;
    EXPECT_THAT(doctor.output, HasSubstr(Beginning("wrong", "producer.load") + folder / "broken.cti" +
                                         ": cannot load the producer: "));
    EXPECT_EQ(MendOf(doctor, "producer.load"), "mv " + folder / "broken.cti" + " " + folder / "broken.cti" + ".off");
    EXPECT_THAT(doctor.output, Wrong("producer.libraries", folder / "lacking.cti" + ": libnqabsent1.so.2 is missing",
                                     "apt-get install libnqabsent1-2"));
    EXPECT_THAT(doctor.output,
                NotKnown("producer.load", folder / "lacking.cti" + ": a library that it needs is missing\n"));
}

TEST(DoctorProducers, ThatCrashOrRefuseAreWrong)
{
    const TemporaryFolder folder;
    fs::copy_file(NQ_FAKE_PRODUCER_PATH, folder / "fake.cti");
    const std::vector<std::string> sanitizers = {"ASAN_OPTIONS=verify_asan_link_order=0:handle_segv=0",
                                                 "TSAN_OPTIONS=handle_segv=0"};
    EXPECT_THAT(WithProducers(folder.Path(), Joined({"NQ_FAKE_PRODUCER=TLOpen.signal=11"}, sanitizers)).output,
                Wrong("producer.load", folder / "fake.cti" + ": it crashed: Segmentation fault",
                      "mv " + folder / "fake.cti" + " " + folder / "fake.cti" + ".off"));
}

/// A folder with the tool and our producer, and how the line that mends names it.
struct Place
{
    const char* folder;
    std::string line;
};

class DoctorProducersBesideTheTool : public testing::TestWithParam<Place>
{
};

TEST_P(DoctorProducersBesideTheTool, ThatNobodyFindsAreMendedByTheLine)
{
    const TemporaryFolder place;
    const std::string folder = place / GetParam().folder;
    fs::create_directory(folder);
    fs::copy_file(NQ_TOOL_PATH, folder + "/nq-gev");
    fs::copy_file(NQ_CTI_PATH, folder + "/ours.cti");
    const std::string doctor = "'" + folder + "/nq-gev' --timeout 100 doctor";
    std::string line = "export GENICAM_GENTL64_PATH=" + GetParam().line;
    line.replace(line.find("FOLDER"), 6, folder);
    const std::vector<std::string> home = {"HOME=" + place.Path()};

    const Outcome unset = RunProgram({"/bin/sh", "-c", "unset GENICAM_GENTL64_PATH; exec " + doctor}, home);
    EXPECT_THAT(unset.output,
                Wrong("producer.path", "GENICAM_GENTL64_PATH is not set: programs but nq-gev find no producer", line));
    EXPECT_THAT(unset.output,
                Wrong("producer.answers", "our producer's own, for its own hosts", "export NQ_GEV_TL_STANDARD=1"));
    const TemporaryFolder empty;
    const Outcome none =
        RunProgram({"/bin/sh", "-c", "export GENICAM_GENTL64_PATH='" + empty.Path() + "'; exec " + doctor}, home);
    EXPECT_THAT(none.output,
                HasSubstr(Beginning("wrong", "producer.path") + "no .cti in GENICAM_GENTL64_PATH (" + empty.Path()));
    const Outcome mended = RunProgram(
        {"/bin/sh", "-c", MendOf(none, "producer.path") + "; " + MendOf(none, "producer.answers") + "; " + doctor},
        home);
    EXPECT_THAT(mended.output, Right("producer.path", "GENICAM_GENTL64_PATH leads to 1 .cti\n"));
    EXPECT_THAT(mended.output, Right("producer.answers", "the standard's (NQ_GEV_TL_STANDARD=1)\n"));
}

INSTANTIATE_TEST_SUITE_P(Places, DoctorProducersBesideTheTool,
                         testing::Values(Place{"plain", "FOLDER"}, Place{"with space", "'FOLDER'"},
                                         Place{"with:colon",
                                               "~/nq-gev-producer && ln -sfn 'FOLDER' ~/nq-gev-producer"}),
                         [](const auto& tested) {
                             std::string name = tested.param.folder;
                             std::replace_if(
                                 name.begin(), name.end(), [](char one) { return one == ' ' || one == ':'; }, '_');
                             return name;
                         });

TEST(DoctorOutput, AsJsonHasTheSameWithQuestionAndNumbers)
{
    const Outcome doctor =
        RunProgram({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "--timeout", "100", "--json", "doctor"});
    EXPECT_EQ(doctor.exitCode, 1);
    ExpectFitsSchema("doctor", doctor.output);
    EXPECT_THAT(doctor.output, testing::ContainsRegex("^\\{\n  \"right\": [0-9]+,\n  \"wrong\": [1-9][0-9]*,\n  "
                                                      "\"not_known\": [0-9]+,\n  \"findings\": \\[\n"));
    EXPECT_THAT(
        doctor.output,
        HasSubstr("    {\n      \"id\": \"adapter.found\",\n      \"question\": \"Is there a network adapter?\",\n"
                  "      \"subject\": \"\",\n      \"verdict\": \"wrong\",\n      \"text\": \"there is none but lo\",\n"
                  "      \"mend\": \"docker run --network host ... # anywhere else put in a network card\"\n    }"));
    EXPECT_THAT(doctor.output, HasSubstr("\"verdict\": \"right\",\n      \"text\": \"not needed: " NQ_CTI_PATH
                                         " was named\",\n      \"mend\": null\n"));
}

TEST(DoctorOutput, NamesEveryFindingOfTheTableWithNoCameraAndNoRdma)
{
    const Outcome doctor = RunDoctor();
    const Names ids = All(TextOfFile("docs/doctor.md"), "\n\\| `([a-z.]+)` \\|");
    EXPECT_EQ(ids.size(), 37U);
    for (const std::string& id : ids)
    {
        EXPECT_THAT(doctor.output, testing::ContainsRegex("\n?(right|wrong|not known)  *" + id + " "));
    }
}

TEST(DoctorTable, IsTheOneOfTheDocument)
{
    const Outcome table = RunProgram({NQ_TOOL_PATH, "doctor", "--table"});
    EXPECT_EQ(table.exitCode, 0);
    EXPECT_THAT(table.output, testing::StartsWith("| Finding | Question | How it is seen | What mends it |\n|---|"));
    EXPECT_THAT(TextOfFile("docs/doctor.md"), HasSubstr(table.output));
}

// Two tests for each: one in which it is right, one in which it is wrong.
TEST(DoctorTable, IsCoveredByTests)
{
    std::string tests;
    for (const char* name : {"doctor", "doctor_network", "doctor_rdma"})
    {
        tests += TextOfFile(std::string("tests/tools/") + name + "_test.cpp");
    }
    const Names ids = All(TextOfFile("docs/doctor.md"), "\n\\| `([a-z.]+)` \\|");
    EXPECT_EQ(Without(ids, All(tests, R"re((?:Right\(|Beginning\("right", )"([a-z.]+)")re")), Names());
    EXPECT_EQ(Without(ids, All(tests, R"re((?:Wrong\(|Beginning\("wrong", )"([a-z.]+)")re")), Names());
}

TEST(DoctorProcess, OfAPlainUserHasAnEnd)
{
    const VirtualCamera camera;
    const Outcome doctor = InTime(Right("camera.discovery", "host0: NQ-GEV-Camera"), [&] {
        return RunProgram({"/usr/bin/setpriv", "--bounding-set=-all", "--inh-caps=-all", NQ_TOOL_PATH, "--producer",
                           NQ_CTI_PATH, "--timeout", "100", "doctor"},
                          camera.Environment());
    });
    EXPECT_THAT(doctor.output, Right("camera.discovery", "host0: NQ-GEV-Camera"));
    EXPECT_THAT(doctor.output, NotKnown("camera.path", "NQ-GEV-Camera"));
    EXPECT_THAT(doctor.output, HasSubstr(": this user may not send echo requests: "));
}

TEST(Report, HasAllSectionsWithNoCameraAndSaysWhatItHolds)
{
    const Outcome report = RunProgram({NQ_TOOL_PATH, "--timeout", "100", "report"}, {"LD_LIBRARY_PATH=/nowhere\x1b"});
    EXPECT_EQ(report.exitCode, 0);
    EXPECT_THAT(report.output, testing::StartsWith("This report holds: versions of nq-gev, the kernel"));
    EXPECT_THAT(report.output, HasSubstr("\n== versions ==\nnq-gev        2.5.5, commit "));
    EXPECT_THAT(report.output, HasSubstr("\n== doctor ==\nwrong      producer.path       "));
    EXPECT_THAT(report.output, HasSubstr("\n== info ==\nnq-gev     2.5.5, commit "));
    EXPECT_THAT(report.output, HasSubstr("\n== list ==\nnq-gev: No network interface was found."));
    EXPECT_THAT(report.output, HasSubstr("\n== adapters ==\n"));
    EXPECT_THAT(report.output, HasSubstr("\n== RDMA ==\n"));
    EXPECT_THAT(report.output, HasSubstr("\n== kernel ==\nnet/ipv4/conf/all/rp_filter  "));
    EXPECT_THAT(report.output, HasSubstr("\n== environment ==\nGENICAM_GENTL64_PATH=(not set)\n"));
    EXPECT_THAT(report.output, HasSubstr("\nLD_LIBRARY_PATH=/nowhere\\x1b\n"));
}

TEST(Report, AsJsonHasTheFindingsAndEverySection)
{
    const Outcome report = RunProgram({NQ_TOOL_PATH, "--timeout", "100", "--json", "report"});
    EXPECT_EQ(report.exitCode, 0);
    ExpectFitsSchema("report", report.output);
    EXPECT_THAT(report.output, testing::StartsWith("{\n  \"holds\": \"This report holds: versions of nq-gev, "));
    EXPECT_THAT(report.output, HasSubstr("\"id\": \"producer.path\""));
    EXPECT_THAT(report.output, HasSubstr("\"list\": \"nq-gev: No network interface was found."));
    const TemporaryFolder folder;
    const std::string file = folder / "report.json";
    const Outcome written = RunProgram({NQ_TOOL_PATH, "--timeout", "100", "--json", "report", "-o", file});
    EXPECT_EQ(written.exitCode, 0);
    EXPECT_EQ(written.output, "{\n  \"file\": \"" + file + "\"\n}\n");
    ExpectFitsSchema("report", written.output);
    ExpectFitsSchema("report", BytesOf(file));
}

TEST(Report, GoesToANewFileAndNeverOverAnOldOne)
{
    const VirtualCamera camera({"--serial", "SN-4711"});
    const TemporaryFolder folder;
    const std::string file = folder / "report.txt";
    const std::vector<std::string> arguments = {"--timeout", "300", "report", "-o", file};
    const auto found = HasSubstr("serial SN-4711  address 10.77.0.2  access read/write\n");
    Outcome report{};
    const std::string text = InTime(found, [&] {
                                 fs::remove(file);
                                 report = RunTool(arguments, camera.Environment());
                                 return Outcome{report.exitCode, BytesOf(file)};
                             }).output;
    EXPECT_EQ(report.exitCode, 0);
    EXPECT_THAT(report.output, testing::StartsWith("This report holds: "));
    EXPECT_THAT(report.output, testing::EndsWith("\nIt is in " + file + "\n"));
    EXPECT_THAT(text, found);
    EXPECT_THAT(text, HasSubstr("\nhost0  up, link, MTU 1500, MAC "));
    EXPECT_THAT(text, HasSubstr("  address  10.77.0.1/24\n"));
    // At once: nobody is asked first.
    const Outcome again = RunTool({"--timeout", "3000000", "report", "-o", file}, camera.Environment());
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_THAT(again.output, HasSubstr("File exists"));
    EXPECT_EQ(BytesOf(file), text);
}

} // namespace
