// SPDX-License-Identifier: Apache-2.0
// The HTML report of gentl-check: what stands in it, that no text of a producer becomes a part of the page, and that
// its filters work in a browser.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gtest/gtest.h>

using namespace nq::test;

namespace
{

const std::string kProducer = NQ_FAULTY_FOLDER "/nq_faulty_whole.cti";

size_t CountOf(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    {
        ++count;
    }
    return count;
}

void ExpectHas(const std::string& text, const std::string& part)
{
    EXPECT_EQ(CountOf(text, part), 1U) << part << "\nin\n" << text;
}

/// The report on a run that ends with an exit code.
std::string Report(const std::string& path, const std::vector<std::string>& arguments, const std::string& faults,
                   int exitCode)
{
    const TemporaryFolder folder;
    const std::string file = folder / "report.html";
    const Outcome outcome =
        RunProgram(Joined({NQ_CHECK_PATH, path, "--html", file}, arguments), {"NQ_FAULTS=" + faults});
    EXPECT_EQ(outcome.exitCode, exitCode) << outcome.output;
    return BytesOf(file);
}

TEST(CheckHtml, HasTheRulesWithTheirResults)
{
    const std::string html = Report(kProducer, {"--only", "LS-012,BF-00[1-9]"}, "queue_twice,no_serial_number", 1);
    EXPECT_TRUE(html.starts_with("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"));
    EXPECT_TRUE(html.ends_with("</script>\n</body>\n</html>\n"));
    ExpectHas(html, "<title>gentl-check: nq_faulty_whole.cti</title>");
    ExpectHas(html, "<dt>Device</dt><dd>made-up-camera</dd>");
    ExpectHas(html, "<dl id=\"summary\"><div class=\"passed\"><dt>passed</dt><dd>8</dd></div>"
                    "<div class=\"failed\"><dt>failed</dt><dd>2</dd></div>"
                    "<div class=\"not-tried\"><dt>not tried</dt><dd>0</dd></div></dl>");
    ExpectHas(html, "<p>Warnings among the failed, of what the standard does not ask for: 1</p>");
    ExpectHas(html, "<section data-family=\"buffers and queues\">\n<h2>buffers and queues</h2>\n");
    ExpectHas(html, "<details class=\"rule passed\" id=\"BF-001\" data-result=\"passed\" data-severity=\"must\">\n"
                    "<summary><span class=\"result\">passed</span> <code>BF-001</code> <span class=\"words\">both "
                    "announce functions work, and neither queues</span> <span class=\"clause\">3.6, 6.3.5.2</span> "
                    "<span class=\"severity\">must</span></summary>\n");
    ExpectHas(html, "<dl><dt>Clause</dt><dd>3.6, 6.3.5.2</dd><dt>Needs</dt><dd>a camera</dd><dt>Took</dt>");
    ExpectHas(html, "<details class=\"rule warned\" id=\"LS-012\" data-result=\"warned\" data-severity=\"may\" open>");
}

TEST(CheckHtml, TellsOfAFailureWhatWasSeenWhatItMeansAndItsCalls)
{
    const std::string html = Report(kProducer, {"--only", "BF-008"}, "queue_twice", 1);
    ExpectHas(html, "<h4>What was seen</h4><pre class=\"seen\" tabindex=\"0\">");
    ExpectHas(html,
              "<h4>What a consumer will see</h4><pre class=\"consumer\" tabindex=\"0\">One buffer is filled with two "
              "frames, and the second comes while it reads the first.</pre>");
    const size_t calls = html.find("<h4>The calls that led there</h4><pre class=\"calls\" tabindex=\"0\">say(&quot;");
    ASSERT_NE(calls, std::string::npos) << html;
    EXPECT_NE(html.find("say(&quot;DSQueueBuffer&quot;, g.DSQueueBuffer(h[", calls), std::string::npos) << html;
}

TEST(CheckHtml, TellsWhyARuleWasNotTried)
{
    const std::string html =
        Report(kProducer, {"--only", "BF-008", "--device", "none", "--baseline", "/dev/null"}, "", 1);
    ExpectHas(html,
              "<details class=\"rule not-tried\" id=\"BF-008\" data-result=\"not-tried\" data-severity=\"must\">");
    ExpectHas(html, "<h4>Why not</h4><pre class=\"seen\" tabindex=\"0\">the camera is no longer listed</pre>");
    ExpectHas(html, "<ul id=\"differences\"><li>BF-008 not-tried, passed in the baseline</li></ul>");
}

TEST(CheckHtml, TellsOfAProducerThatCannotBeLoaded)
{
    const std::string html = Report(NQ_SOURCE_DIR "/README.md", {}, "", 3);
    ExpectHas(html, "<h2>The producer cannot be checked</h2>\n<pre id=\"problem\">cannot be loaded: ");
}

/// The name of the file stands in what a rule saw, too.
TEST(CheckHtml, NoTextOfAProducerBecomesAPartOfThePage)
{
    const TemporaryFolder folder;
    const std::string path = folder / "<img src=x onerror=alert(1)>\"&'\x1b[31m\xff\xe2\x80\xae.so";
    std::filesystem::copy_file(kProducer, path);
    const std::string html = Report(path, {"--only", "LB-002"}, "", 1);
    EXPECT_EQ(html.find("<img"), std::string::npos) << html;
    EXPECT_EQ(CountOf(html, "&lt;img src=x onerror=alert(1)&gt;&quot;&amp;&#39;\\x1b[31m\\xff\\xe2\\x80\\xae.so"), 3U)
        << html;
    EXPECT_TRUE(std::all_of(html.begin(), html.end(), [](char c) { return c == '\n' || (c >= 0x20 && c < 0x7F); }));
}

TEST(CheckHtml, EveryRuleSaysWhatAConsumerWillSee)
{
    const Outcome list = RunProgram({NQ_CHECK_PATH, "--list", "--json"});
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_GE(CountOf(list.output, "\"id\": "), 144U);
    EXPECT_EQ(CountOf(list.output, "\"consumer\": \""), CountOf(list.output, "\"id\": "));
    for (size_t at = list.output.find("\"consumer\": \"\""); at != std::string::npos;
         at = list.output.find("\"consumer\": \"\"", at + 1))
    {
        ADD_FAILURE() << list.output.substr(at, 200);
    }
}

/// In a namespace without routes, where nothing can be loaded. Pictures of the page are left in the build's folder.
TEST(CheckHtml, WorksInABrowser)
{
    const TemporaryFolder folder;
    const std::string report = folder / "report.html";
    const std::vector<std::string> command = {NQ_CHECK_PATH, kProducer, "--only", "LB-*,LS-012,BF-*,PR-00[3-7]",
                                              "--html",      report,    "--json"};
    const Outcome check = RunProgram(command, {"NQ_FAULTS=queue_twice,no_serial_number,closed_handle_crashes"});
    ASSERT_EQ(check.exitCode, 1) << check.output;
    std::ofstream(folder / "result.json") << check.output;
    const std::string pictures = NQ_BINARY_DIR "/gentl-check-report";
    std::filesystem::create_directories(pictures);
    ChildProcess browser(
        {"/usr/bin/python3", NQ_SOURCE_DIR "/tests/check/browse_report.py", report, folder / "result.json", pictures});
    const int code = browser.WaitForExit(std::chrono::seconds(100));
    if (code == 77)
    {
        GTEST_SKIP() << browser.Output();
    }
    EXPECT_EQ(code, 0) << browser.Output();
}

} // namespace
