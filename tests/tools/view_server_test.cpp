// SPDX-License-Identifier: Apache-2.0
// Who may ask nq-gev view, and what strangers cannot do to it.
#include "support/json_schema.h"
#include "support/process_counts.h"
#include "support/view.h"
#include "support/virtual_camera.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <list>

namespace
{

using namespace nq::test;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

const std::string kNothing = "HTTP/1.1 404 Not Found\r\n";

/// A process that any thread of that one started; 0 when there is none.
pid_t FirstChildOf(pid_t process)
{
    for (const fs::path& thread : fs::directory_iterator(fs::path("/proc") / std::to_string(process) / "task"))
    {
        pid_t child = 0;
        std::ifstream children(thread / "children");
        if (children >> child)
        {
            return child;
        }
    }
    return 0;
}

class ViewServer : public testing::Test
{
  protected:
    const VirtualCamera m_camera{{"--width", "64", "--height", "48", "--fps", "20"}};
    View m_view{{}, m_camera.Environment()};

    /// The answer to a request for a path as it stands.
    std::string OfPath(const std::string& path) const
    {
        return Answer(m_view.Port(), "GET " + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n");
    }
};

TEST_F(ViewServer, ServesThePageWithAllOfItsFilesAndNothingFromElsewhere)
{
    const std::string page = m_view.Get("");
    EXPECT_THAT(page, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(page, HasSubstr("\r\nContent-Type: text/html; charset=utf-8\r\n"));
    EXPECT_THAT(page, HasSubstr("\r\nConnection: close\r\n"));
    EXPECT_THAT(page, HasSubstr("<title>nq-gev view</title>"));
    EXPECT_THAT(page, HasSubstr("\r\nContent-Security-Policy: default-src 'none'; script-src 'self'; "));
    EXPECT_THAT(page, HasSubstr("\r\nReferrer-Policy: no-referrer\r\n"));
    EXPECT_THAT(page, HasSubstr("\r\nX-Content-Type-Options: nosniff\r\n"));
    EXPECT_THAT(page, Not(HasSubstr("Access-Control")));
    size_t files = 0;
    for (const fs::path& path : fs::directory_iterator(NQ_SOURCE_DIR "/tools/view/page"))
    {
        const std::string answer = m_view.Get(path.filename());
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n")) << path;
        EXPECT_EQ(answer.substr(answer.find("\r\n\r\n") + 4), BytesOf(path)) << path;
        ++files;
    }
    EXPECT_GE(files, 10U);
}

TEST_F(ViewServer, TellsNobodyWithoutTheTokenWhatIsThere)
{
    std::string wrong = m_view.Token();
    wrong.back() = wrong.back() == '0' ? '1' : '0';
    const std::string answer = OfPath("/");
    EXPECT_THAT(answer, StartsWith(kNothing));
    const std::string own = "/" + m_view.Token();
    const std::vector<std::string> paths = {"/" + wrong + "/",
                                            "/" + wrong + "/numbers",
                                            own + "0/",
                                            "/" + m_view.Token().substr(1) + "/",
                                            "//",
                                            "/main.js",
                                            "/numbers",
                                            own,
                                            own + "/none",
                                            own + "/../main.js",
                                            own + "/page/main.js",
                                            own + "/%6dain.js",
                                            own + "/../../../../etc/passwd",
                                            own + "//etc/passwd"};
    for (const std::string& path : paths)
    {
        EXPECT_EQ(OfPath(path), answer) << path;
    }
}

TEST_F(ViewServer, RefusesOtherMethods)
{
    for (const char* method : {"PUT", "DELETE", "OPTIONS", "HEAD", "TRACE"})
    {
        EXPECT_THAT(Answer(m_view.Port(), m_view.Request(method, "numbers")), StartsWith(kNothing)) << method;
    }
    EXPECT_THAT(m_view.Post("numbers"), StartsWith(kNothing));
    EXPECT_THAT(m_view.Get("record?camera=0&on=1"), StartsWith(kNothing));
}

TEST_F(ViewServer, RefusesNamesThatForeignPagesCouldHavePointedHere)
{
    const auto asked = [this](const std::string& host) {
        return Answer(m_view.Port(), "GET /" + m_view.Token() + "/ HTTP/1.1\r\n" + host + "\r\n");
    };
    for (const char* host : {"localhost", "localhost:8080", "127.0.0.1:1", "10.77.0.1"})
    {
        EXPECT_THAT(asked("Host: " + std::string(host) + "\r\n"), StartsWith("HTTP/1.1 200 OK\r\n")) << host;
    }
    for (const char* host : {"evil.example", "localhost.evil.example:80", "127.0.0.1.evil.example", ""})
    {
        EXPECT_THAT(asked("Host: " + std::string(host) + "\r\n"), StartsWith("HTTP/1.1 403 Forbidden\r\n")) << host;
    }
    EXPECT_THAT(asked(""), StartsWith("HTTP/1.1 403 Forbidden\r\n"));
}

TEST_F(ViewServer, RefusesWhatPagesOfOthersAsk)
{
    const std::string own = "Origin: http://127.0.0.1:" + std::to_string(m_view.Port()) + "\r\n";
    EXPECT_THAT(m_view.Post("pause?camera=0&on=0", "{}", own), StartsWith("HTTP/1.1 200 OK\r\n"));
    for (const char* header : {"Origin: http://evil.example\r\n", "Origin: null\r\n", "Sec-Fetch-Site: cross-site\r\n"})
    {
        EXPECT_THAT(m_view.Post("pause?camera=0&on=0", "{}", header), StartsWith("HTTP/1.1 403 Forbidden\r\n"))
            << header;
        EXPECT_THAT(m_view.Get("numbers", header), StartsWith("HTTP/1.1 403 Forbidden\r\n")) << header;
    }
    EXPECT_THAT(m_view.Get("", "Sec-Fetch-Site: cross-site\r\nSec-Fetch-Mode: navigate\r\n"),
                StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST_F(ViewServer, RefusesHugeAndBrokenRequests)
{
    const std::string line = "GET /" + m_view.Token() + "/ HTTP/1.1\r\nHost: localhost\r\n";
    const auto answer = [this](const std::string& bytes) { return Answer(m_view.Port(), bytes); };
    EXPECT_THAT(answer(line + "A: " + std::string(1 << 20, 'a') + "\r\n\r\n"), StartsWith("HTTP/1.1 400 "));
    // Newer versions of cpp-httplib close the connection of who asks for so long a name, without a word.
    const auto refused = testing::AnyOf(StartsWith("HTTP/1.1 414 "), testing::IsEmpty());
    EXPECT_THAT(answer("GET /" + std::string(50'000, 'a') + " HTTP/1.1\r\n\r\n"), refused);
    EXPECT_THAT(answer("GET /" + std::string(1 << 20, 'a')), refused);
    std::string many;
    for (int number = 0; number < 20'000; ++number)
    {
        many += "A: " + std::to_string(number) + "\r\n";
    }
    EXPECT_THAT(answer(line + many + "\r\n"), StartsWith("HTTP/1.1 400 "));
    const std::string nul("A: b\0c\r\n\r\n", 10);
    for (const std::string& bytes : std::vector<std::string>{"\r\n\r\n", "GET\r\n\r\n", "GET / FTP/1\r\n\r\n", "NONE"})
    {
        EXPECT_THAT(answer(bytes + "\r\n\r\n"), StartsWith("HTTP/1.1 400 ")) << bytes;
    }
    for (const char* header :
         {"no colon", ": no name", "Range: bytes=-", "Range: bytes=0-0,1-1", "Expect: 100-continue"})
    {
        EXPECT_THAT(answer(line + header + "\r\n\r\n"), StartsWith("HTTP/1.1 ")) << header;
    }
    EXPECT_THAT(answer(line + nul), StartsWith("HTTP/1.1 "));
    EXPECT_THAT(m_view.Get(""), StartsWith("HTTP/1.1 200 OK\r\n"));
}

/// It reads no more, so that the kernel takes no more either.
TEST_F(ViewServer, KeepsLittleOfARequestWithoutEnd)
{
    const auto resident = [this] {
        const std::string status = BytesOf("/proc/" + std::to_string(m_view.Process().Pid()) + "/status");
        return std::strtol(status.c_str() + status.find("VmRSS:") + 6, nullptr, 10);
    };
    m_view.NumbersWith("\"state\":\"running\""); // with all that a stream needs
    const long before = resident();
    HttpClient endless(m_view.Port());
    endless.Send("GET / HTTP/1.1\r\nA: ");
    for (int part = 0; part < 64; ++part)
    {
        endless.Send(std::string(1 << 20, 'a')); // until the other side has closed
    }
    EXPECT_LT(resident() - before, 16384) << "KiB";
}

TEST_F(ViewServer, RefusesBodiesThatAreHugePackedOrOfNoLength)
{
    const auto posted = [this](const std::string& headers, const std::string& body = "") {
        return Answer(m_view.Port(), m_view.Request("POST", "feature?camera=0", "", headers) + body);
    };
    for (const char* length : {"65537", "999999999", "99999999999999999999", "-1", "1x"})
    {
        EXPECT_THAT(posted("Content-Length: " + std::string(length) + "\r\n"), StartsWith("HTTP/1.1 413 ")) << length;
    }
    EXPECT_THAT(m_view.Post("feature?camera=0", std::string(65537, ' ')), StartsWith("HTTP/1.1 413 "));
    EXPECT_THAT(m_view.Post("feature?camera=0", std::string(65536, ' ')), StartsWith("HTTP/1.1 400 "));
    EXPECT_THAT(posted(""), StartsWith("HTTP/1.1 411 "));
    EXPECT_THAT(posted("Transfer-Encoding: chunked\r\n", "2\r\n{}\r\n0\r\n\r\n"), StartsWith("HTTP/1.1 411 "));
    EXPECT_THAT(posted("Content-Encoding: gzip\r\nContent-Length: 2\r\n", "{}"), StartsWith("HTTP/1.1 415 "));
}

/// Two thousand times the file would be the answer to a small header.
TEST_F(ViewServer, TakesNoPartsOfAnAnswer)
{
    std::string ranges = "Range: bytes=0-0";
    for (int number = 0; number < 2000; ++number)
    {
        ranges += ",1-";
    }
    const std::string answer = m_view.Get("main.js", ranges + "\r\n");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_EQ(answer.substr(answer.find("\r\n\r\n") + 4), BytesOf(NQ_SOURCE_DIR "/tools/view/page/main.js"));
}

TEST_F(ViewServer, EndsWhoNeverComesToTheEndOfARequest)
{
    HttpClient silent(m_view.Port());
    HttpClient begun(m_view.Port());
    begun.Send("GET / HTTP/1.1\r\nHost: local");
    HttpClient bodiless(m_view.Port());
    bodiless.Send(m_view.Request("POST", "pause?camera=0&on=0", "", "Content-Length: 10\r\n"));
    EXPECT_EQ(silent.ReadAll(), "");
    EXPECT_THAT(begun.ReadAll(), StartsWith("HTTP/1.1 400 "));
    EXPECT_THAT(bodiless.ReadAll(), StartsWith("HTTP/1.1 400 "));
}

TEST_F(ViewServer, RefusesWrongNumbersAndBodiesWithAReason)
{
    for (const char* name :
         {"pixels?camera=1&x=0&y=0&width=1&height=1", "pixels?camera=0&x=-1&y=0&width=1&height=1", "pixels?camera=0",
          "line?camera=0&x0=0&y0=0&x1=99999999999&y1=0", "histogram", "features?camera=%30%30x", "features?camera=99"})
    {
        EXPECT_THAT(m_view.Get(name), AllOf(StartsWith("HTTP/1.1 400 "), HasSubstr("\"code\":2}"))) << name;
    }
    const std::string deep(30'000, '[');
    for (const std::string& body : {std::string("no JSON"), std::string("[]"), std::string(R"({"name":"Gain"})"),
                                    std::string(R"({"name":1,"value":"2"})"), deep})
    {
        EXPECT_THAT(m_view.Post("feature?camera=0", body),
                    AllOf(StartsWith("HTTP/1.1 400 "), HasSubstr("the body has no text "), HasSubstr("\"code\":2}")));
    }
}

TEST_F(ViewServer, AnswersWhileAHundredOthersSayNothing)
{
    std::list<HttpClient> silent;
    for (int number = 0; number < 100; ++number)
    {
        silent.emplace_back(m_view.Port());
        ASSERT_TRUE(silent.back().IsConnected()) << number;
    }
    EXPECT_THAT(m_view.Get(""), StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST_F(ViewServer, RefusesMoreThan128AtOnceAndTakesThemLater)
{
    {
        std::list<HttpClient> pages;
        for (int number = 0; number < 128; ++number)
        {
            pages.emplace_back(m_view.Port());
            pages.back().Send(m_view.Request("GET", "numbers"));
            EXPECT_THAT(
                pages.back().Read([](const std::string& read) { return read.find("data: ") != std::string::npos; }),
                StartsWith("HTTP/1.1 200 OK\r\n"));
        }
        EXPECT_THAT(m_view.Get(""), AllOf(StartsWith("HTTP/1.1 503 Service Unavailable\r\n"),
                                          HasSubstr("\r\n\r\ntoo many connections\n")));
    }
    std::string answer;
    for (int number = 0; number < 300 && answer.find(" 200 OK") == std::string::npos; ++number)
    {
        poll(nullptr, 0, 100);
        answer = m_view.Get("");
    }
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
}

size_t DescriptorsOf(pid_t process)
{
    const fs::directory_iterator entries("/proc/" + std::to_string(process) + "/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

TEST_F(ViewServer, KeepsNoDescriptorOfWhoIsGone)
{
    m_view.NumbersWith("\"state\":\"running\"");
    const pid_t process = m_view.Process().Pid();
    const auto numbers = [](const std::string& read) { return read.find("data: ") != std::string::npos; };
    const auto left = [&](size_t most) {
        for (int part = 0; part < 600 && DescriptorsOf(process) > most; ++part)
        {
            poll(nullptr, 0, 50);
        }
        return DescriptorsOf(process);
    };
    const size_t before = DescriptorsOf(process);
    {
        std::list<HttpClient> pages;
        for (int number = 0; number < 20; ++number)
        {
            pages.emplace_back(m_view.Port());
            pages.back().Send(m_view.Request("GET", number % 2 == 0 ? "numbers" : "none"));
            pages.back().Read(numbers);
        }
    }
    EXPECT_LE(left(before), before);
}

TEST_F(ViewServer, ListensOnTheLoopbackAddressAlone)
{
    EXPECT_THAT(m_view.Url(), StartsWith("http://127.0.0.1:"));
    EXPECT_FALSE(HttpClient(m_view.Port(), "10.77.0.1").IsConnected());
    EXPECT_EQ(m_view.Process().Output().find("open to everybody"), std::string::npos);
}

TEST_F(ViewServer, EndsAtOnceWithPagesOpenAndGivesTheCameraBack)
{
    HttpClient numbers(m_view.Port());
    numbers.Send(m_view.Request("GET", "numbers"));
    numbers.Read([](const std::string& read) { return read.find("data: ") != std::string::npos; });
    HttpClient stuck(m_view.Port(), "127.0.0.1", 1);
    stuck.Send(m_view.Request("GET", "pictures"));
    const HttpClient silent(m_view.Port());
    m_view.NumbersWith("\"state\":\"running\"");
    m_view.Process().Signal(SIGINT);
    EXPECT_EQ(m_view.Process().WaitForExit(kLongTime), 130) << m_view.Process().Output();
    const Outcome grab = RunTool({"grab", "--count", "3"}, m_camera.Environment());
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
}

TEST_F(ViewServer, EndsAtOnceThoughTheDoctorIsAtWork)
{
    // The doctor is stopped before it ends; another one comes if the first was too quick.
    std::list<HttpClient> pages;
    pid_t doctor = 0;
    for (int look = 0; look < 20'000 && doctor == 0; ++look)
    {
        if (look % 1000 == 0)
        {
            pages.emplace_back(m_view.Port()).Send(m_view.Request("POST", "doctor", "{}"));
        }
        const pid_t child = FirstChildOf(m_view.Process().Pid());
        // Not before it is the doctor: who starts a process waits until that runs its own program.
        const bool runs = ArgumentsOf("/proc/" + std::to_string(child)).find("doctor") != std::string::npos;
        doctor = child != 0 && runs && kill(child, SIGSTOP) == 0 ? child : 0;
        poll(nullptr, 0, 1);
    }
    ASSERT_NE(doctor, 0) << "no doctor came";
    // One is enough for all pages.
    const std::string second = m_view.Post("doctor");
    EXPECT_THAT(second, StartsWith("HTTP/1.1 409 "));
    EXPECT_THAT(second,
                HasSubstr("{\"error\":\"the doctor is at work already, for another page; ask again in a while\""));
    m_view.Process().Signal(SIGTERM);
    // It waits a minute for each part of what the doctor says.
    EXPECT_EQ(m_view.Process().WaitForExit(std::chrono::seconds(30)), 143) << m_view.Process().Output();
    EXPECT_NE(kill(doctor, 0), 0) << "the doctor is left behind";
}

TEST(ViewListen, OnOtherAddressesIsOpenToEverybodyAndSaysSo)
{
    const VirtualCamera camera({"--width", "64", "--height", "48", "--fps", "20"});
    View view({"--listen", "10.77.0.1"}, camera.Environment());
    EXPECT_TRUE(view.Process().WaitForOutput(
        "open to everybody on the network who knows the token in the address, and not encrypted\n", kLongTime));
    HttpClient client(view.Port(), "10.77.0.1");
    client.Send(view.Request("GET", ""));
    EXPECT_THAT(client.ReadAll(), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_FALSE(HttpClient(view.Port()).IsConnected());
}

TEST(ViewListen, PrintsTheAddressesAsJson)
{
    const VirtualCamera camera({"--width", "64", "--height", "48", "--fps", "20"});
    ChildProcess view({"/bin/sh", "-c", "exec " + kOurLine + "--json view 2>/dev/null"}, camera.Environment());
    ASSERT_TRUE(view.WaitForOutput("/\"]}\n", kLongTime)) << view.Output();
    ExpectFitsSchema("view", view.Output());
    view.Signal(SIGTERM);
    EXPECT_EQ(view.WaitForExit(kLongTime), 143) << view.Output();
}

TEST(ViewListen, FailsWithAReasonWhereItCannot)
{
    const Outcome foreign = RunTool({"view", "--listen", "192.0.2.1", "--port", "8080"});
    EXPECT_EQ(foreign.exitCode, 1);
    EXPECT_EQ(foreign.output, "nq-gev: cannot listen on 192.0.2.1 port 8080: Cannot assign requested address\n");
    const Outcome name = RunTool({"view", "--listen", "localhost"});
    EXPECT_EQ(name.exitCode, 2);
    EXPECT_EQ(name.output, "nq-gev: localhost is no IPv4 address\n");
    EXPECT_EQ(RunTool({"--timeout", "100", "view"}).exitCode, 4);
}

} // namespace
