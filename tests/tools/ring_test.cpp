// SPDX-License-Identifier: Apache-2.0
// nq-gev grab --ring: the last seconds in memory, written when somebody asks.
#include "support/json_schema.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/two_cameras.h"

#include <algorithm>
#include <csignal>
#include <gmock/gmock.h>
#include <regex>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using namespace std::chrono_literals;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

/// What was said of each time that something was written.
struct Said
{
    size_t frames = 0;
    size_t times = 0;
    double longest = 0; ///< seconds
};

Said WritesIn(const std::string& output)
{
    Said said;
    const std::regex line(R"(writes (\d+) frames? of the last (\d+\.\d) s\n)");
    for (std::sregex_iterator at(output.begin(), output.end(), line); at != std::sregex_iterator(); ++at)
    {
        said.frames += std::stoul((*at)[1]);
        said.longest = std::max(said.longest, std::stod((*at)[2]));
        ++said.times;
    }
    return said;
}

/// How often it was said that something, or nothing, is written: nothing also where the program stood still for as
/// long as the ring is.
size_t AnswersIn(const std::string& output)
{
    const std::regex line(R"((writes \d+ frames?|nothing is kept|no frame came) )");
    return static_cast<size_t>(std::distance(std::sregex_iterator(output.begin(), output.end(), line), {}));
}

/// What a Python expression gives of a file with lines of JSON, of which `m` is a list.
std::string Of(const std::string& path, const std::string& expression)
{
    const std::string text = RunProgram({"/usr/bin/python3", "-c",
                                         "import json, sys\nm = [json.loads(line) for line in open(sys.argv[1])]\n"
                                         "print((" +
                                             expression + "))",
                                         path})
                                 .output;
    return text.substr(0, text.find('\n'));
}

class GrabRing : public testing::Test
{
  protected:
    /// A grab from the fake producer, which has a frame each few milliseconds.
    static std::vector<std::string> Command(const std::vector<std::string>& arguments)
    {
        return Joined({NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH, "grab"}, arguments);
    }

    static std::vector<std::string> Lies(const std::string& further = "")
    {
        return {"NQ_FAKE_PRODUCER=EventGetData.sleep=5\n" + further};
    }

    /// Asks, and again when nothing is kept yet, until something is written.
    static void Ask(ChildProcess& grab)
    {
        ASSERT_TRUE(grab.WaitForOutput("keeps the last", kLongTime)) << grab.Output();
        for (const size_t before = WritesIn(grab.Output()).times; WritesIn(grab.Output()).times == before;)
        {
            const size_t answers = AnswersIn(grab.Output());
            grab.Signal(SIGUSR1);
            while (AnswersIn(grab.Output()) == answers)
            {
                ASSERT_EQ(grab.WaitForExit(1ms), -1) << grab.Output();
            }
        }
    }

    static void ExpectEnd(ChildProcess& grab, int number, int code)
    {
        grab.Signal(number);
        EXPECT_EQ(grab.WaitForExit(kLongTime), code) << grab.Output();
    }

    std::string Out() const { return m_folder / "pictures"; }

    const TemporaryFolder m_folder;
};

TEST_F(GrabRing, WritesTheLastSecondsWhenAskedAndGoesOn)
{
    ChildProcess grab(Command({"--ring", "2", "--format", "raw", "--out", Out(), "--metadata", m_folder / "m"}),
                      Lies());
    ASSERT_NO_FATAL_FAILURE(Ask(grab));
    EXPECT_EQ(grab.WaitForExit(3s), -1) << grab.Output();
    ASSERT_NO_FATAL_FAILURE(Ask(grab));
    ExpectEnd(grab, SIGINT, 130);
    EXPECT_THAT(grab.Output(), HasSubstr("nq-gev: keeps the last 2 s in memory, as many frames of 3072 bytes as come; "
                                         "written by "));
    EXPECT_THAT(grab.Output(), HasSubstr("kill -USR1 " + std::to_string(grab.Pid()) + "\n"));
    const Said said = WritesIn(grab.Output());
    EXPECT_LE(said.longest, 2.0) << "older ones are forgotten";
    const std::string frames = std::to_string(said.frames);
    EXPECT_THAT(grab.Output(), HasSubstr("pictures   " + frames + "\n"));
    EXPECT_THAT(grab.Output(), HasSubstr("\nring       written 2 times\n"));
    // A line for each frame that is written, and for no other; each is written once, and those of a time in a row.
    EXPECT_EQ(Of(m_folder / "m",
                 "len(m), len({l['id'] for l in m}), {l['ring'] for l in m}, sum(l['lost_before'] for l in m)"),
              "(" + frames + ", " + frames + ", {1, 2}, 0)");
    EXPECT_EQ(Of(m_folder / "m", "all(b['id'] == a['id'] + 1 for a, b in zip(m, m[1:]) if a['ring'] == b['ring']), "
                                 "[l['ring'] for l in m] == sorted(l['ring'] for l in m)"),
              "(True, True)");
    const std::string lines = BytesOf(m_folder / "m");
    ExpectFitsSchema("metadata", lines.substr(0, lines.find('\n')));
    EXPECT_EQ(Of(m_folder / "m", "sorted(l['file'] for l in m) == sorted(__import__('os').listdir('" + Out() + "'))"),
              "True");
}

TEST_F(GrabRing, WritesNothingUnasked)
{
    ChildProcess grab(Command({"--ring", "10", "--out", Out(), "--metadata", m_folder / "m"}), Lies());
    while (!fs::exists(m_folder / "m"))
    {
        ASSERT_EQ(grab.WaitForExit(1ms), -1) << grab.Output();
    }
    EXPECT_EQ(grab.WaitForExit(1s), -1);
    ExpectEnd(grab, SIGTERM, 143);
    EXPECT_THAT(grab.Output(), HasSubstr("pictures   0\n"));
    EXPECT_THAT(grab.Output(), HasSubstr("\nring       written 0 times\n"));
    EXPECT_TRUE(fs::is_empty(Out()));
    EXPECT_EQ(BytesOf(m_folder / "m"), "");
}

TEST_F(GrabRing, WritesWhatWasAskedForBeforeTheEnd)
{
    // Both signals come while one call of the producer lasts: first the request, then the end.
    const Outcome grab = RunProgram(Command({"--ring", "10", "--format", "raw", "--out", Out()}),
                                    Lies("EventGetData@20.signal=10\nEventGetData@20.signal=2"));
    EXPECT_EQ(grab.exitCode, 130) << grab.output;
    EXPECT_EQ(WritesIn(grab.output).frames, 20U) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("pictures   20\nframes     20\nlost       0\n"));
    // The same behind the last frame of a count, and of a duration.
    const Outcome counted =
        RunProgram(Command({"--ring", "10", "--format", "raw", "--overwrite", "--out", Out(), "--count", "20"}),
                   Lies("EventGetData@20.signal=10"));
    EXPECT_EQ(counted.exitCode, 0) << counted.output;
    EXPECT_THAT(counted.output, HasSubstr("pictures   20\nframes     20\n"));
}

TEST_F(GrabRing, SaysWhenThereIsNothingToWrite)
{
    std::string silence;
    for (int call = 1; call <= 100; ++call)
    {
        silence += "EventGetData@" + std::to_string(call) + ".code=-1011\nEventGetData@" + std::to_string(call) +
                   ".sleep=100\n";
    }
    ChildProcess grab(Command({"--ring", "2", "--buffers", "110", "--out", Out()}), Lies(silence));
    ASSERT_TRUE(grab.WaitForOutput("keeps the last 2 s", kLongTime)) << grab.Output();
    grab.Signal(SIGUSR1);
    ASSERT_TRUE(grab.WaitForOutput("nq-gev: nothing is kept that is not written already\n", kLongTime))
        << grab.Output();
    ExpectEnd(grab, SIGINT, 130);
}

TEST_F(GrabRing, TellsOfASingleFrame)
{
    std::string silence; // behind the first frame
    for (int call = 2; call <= 1000; ++call)
    {
        silence += "EventGetData@" + std::to_string(call) + ".code=-1011\nEventGetData@" + std::to_string(call) +
                   ".sleep=100\n";
    }
    ChildProcess grab(Command({"--ring", "3600", "--frame-timeout", "600000", "--out", Out()}), Lies(silence));
    ASSERT_NO_FATAL_FAILURE(Ask(grab));
    EXPECT_THAT(grab.Output(), HasSubstr("nq-gev: writes 1 frame of the last 0.0 s\n"));
    ExpectEnd(grab, SIGINT, 130);
}

TEST_F(GrabRing, LeavesOutWhatWasTooOldWhenSomebodyAskedThoughNothingCameSince)
{
    // Ten frames, three seconds of silence, five frames, two seconds of silence, and then the request.
    const Outcome some = RunProgram(
        Command({"--ring", "4", "--buffers", "20", "--format", "raw", "--out", Out(), "--metadata", m_folder / "m"}),
        {"NQ_FAKE_PRODUCER=EventGetData@11.code=-1011\nEventGetData@11.sleep=3000\nEventGetData@17.code=-1011\n"
         "EventGetData@17.sleep=2000\nEventGetData@18.code=-1011\nEventGetData@18.signal=10\n"
         "EventGetData@19.code=-1011\nEventGetData@20.code=-1011\nEventGetData@20.signal=2"});
    EXPECT_EQ(some.exitCode, 130) << some.output;
    EXPECT_THAT(some.output, HasSubstr("nq-gev: writes 5 frames of the last "));
    EXPECT_THAT(some.output, HasSubstr("pictures   5\nframes     15\n"));
    // A call that gives no frame takes its number.
    EXPECT_EQ(Of(m_folder / "m", "[l['id'] for l in m]"), "[12, 13, 14, 15, 16]");
    const Outcome none = RunProgram(
        Command({"--ring", "1", "--buffers", "20", "--format", "raw", "--out", Out()}),
        {"NQ_FAKE_PRODUCER=EventGetData@11.code=-1011\nEventGetData@11.sleep=2000\nEventGetData@12.code=-1011\n"
         "EventGetData@12.signal=10\nEventGetData@13.code=-1011\nEventGetData@14.code=-1011\n"
         "EventGetData@14.signal=2"});
    EXPECT_THAT(none.output, HasSubstr("nq-gev: no frame came in the last 1 s\n"));
    EXPECT_THAT(none.output, HasSubstr("\nring       written 0 times\n"));
}

TEST_F(GrabRing, HearsWhoAskedBeforeItBegan)
{
    const std::vector<std::string> asked = {"/usr/bin/python3", "-c",
                                            "import os, signal, sys\n"
                                            "signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGUSR1})\n"
                                            "os.kill(os.getpid(), signal.SIGUSR1)\n"
                                            "os.execv(sys.argv[1], sys.argv[1:])\n"};
    ChildProcess grab(Joined(asked, Command({"--ring", "2", "--format", "raw", "--out", Out()})), Lies());
    EXPECT_TRUE(grab.WaitForOutput("nq-gev: nothing is kept that is not written already\n", kLongTime))
        << grab.Output();
    ASSERT_NO_FATAL_FAILURE(Ask(grab));
    ExpectEnd(grab, SIGINT, 130);
    // What has no ring ends by that signal, as any program does.
    ChildProcess list(Joined(asked, {NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH, "list"}), {});
    EXPECT_EQ(list.WaitForExit(kLongTime), 128 + SIGUSR1) << list.Output();
}

TEST_F(GrabRing, IsAskedAgainAtOnceAndWhileItWrites)
{
    const TemporaryFolder link; // LD_PRELOAD would split a path with a space or a colon
    fs::create_symlink(NQ_SLOW_FILES_PATH, link / "slow_files.so");
    ChildProcess grab(Command({"--ring", "1", "--out", Out()}),
                      {"NQ_FAKE_PRODUCER=EventGetData.sleep=25", "LD_PRELOAD=" + (link / "slow_files.so")});
    ASSERT_NO_FATAL_FAILURE(Ask(grab));
    grab.Signal(SIGUSR1);
    grab.Signal(SIGUSR1);
    ASSERT_NO_FATAL_FAILURE(Ask(grab)); // each file takes 200 ms
    ExpectEnd(grab, SIGINT, 130);
    EXPECT_THAT(grab.Output(), ContainsRegex("frames     [1-9][0-9]*\nlost       0\n"));
    size_t whole = 0;
    for (const auto& entry : fs::directory_iterator(Out()))
    {
        whole += IsWholePng(entry.path()) ? 1 : 0;
    }
    EXPECT_EQ(whole, WritesIn(grab.Output()).frames);
    EXPECT_THAT(grab.Output(), HasSubstr("pictures   " + std::to_string(whole) + "\n"));
}

TEST_F(GrabRing, EndsAtOnceWithTheCauseWhenAFileCannotBeWritten)
{
    ChildProcess grab(Command({"--ring", "2", "--format", "raw", "--out", Out()}), Lies());
    ASSERT_TRUE(grab.WaitForOutput("keeps the last 2 s", kLongTime)) << grab.Output();
    fs::remove(Out());
    grab.Signal(SIGUSR1);
    for (int again = 0; again < 100 && WritesIn(grab.Output()).times == 0 && grab.WaitForExit(100ms) == -1; ++again)
    {
        grab.Signal(SIGUSR1); // nothing had come yet
    }
    EXPECT_EQ(grab.WaitForExit(kLongTime), 1) << grab.Output();
    EXPECT_THAT(grab.Output(),
                ContainsRegex("nq-gev: cannot write .*frame-[0-9]{8}\\.raw: No such file or directory\n"));
    EXPECT_THAT(grab.Output(), HasSubstr("pictures   0\n"));
}

TEST_F(GrabRing, GoesIntoAPipeInTheOrderOfTheFrames)
{
    ChildProcess grab({"/bin/sh", "-c",
                       "exec " + kFakeLine + "grab --ring 2 --format raw --out - --metadata '" + (m_folder / "m") +
                           "' >'" + (m_folder / "stream") + "'"},
                      Lies());
    ASSERT_NO_FATAL_FAILURE(Ask(grab));
    ExpectEnd(grab, SIGINT, 130);
    const std::string stream = BytesOf(m_folder / "stream");
    const size_t frames = WritesIn(grab.Output()).frames;
    ASSERT_EQ(stream.size(), frames * 3072);
    const std::string first = Of(m_folder / "m", "m[0]['id']");
    for (size_t frame = 0; frame < frames; ++frame)
    {
        // The first pixel of a picture tells its id.
        EXPECT_EQ(static_cast<uint8_t>(stream[frame * 3072]), static_cast<uint8_t>(7 * (std::stoul(first) + frame)));
    }
}

TEST_F(GrabRing, IsWrittenByEnterOnATerminal)
{
    const std::string script = "import os, pty, signal, sys, time\n"
                               "pid, terminal = pty.fork()\n"
                               "if pid == 0: os.execv(sys.argv[1], sys.argv[1:])\n"
                               "said = b''\n"
                               "while b'writes ' not in said:\n"
                               "    said += os.read(terminal, 4096)\n"
                               "    if b'keeps the last' in said: os.write(terminal, b'\\n'); time.sleep(0.2)\n"
                               "os.kill(pid, signal.SIGINT)\n"
                               "try:\n"
                               "    while True: said += os.read(terminal, 4096)\n"
                               "except OSError: pass\n"
                               "print(said.decode(), 'code', os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]))\n";
    const Outcome grab = RunProgram(
        Joined({"/usr/bin/python3", "-c", script}, Command({"--ring", "2", "--format", "raw", "--out", Out()})),
        Lies());
    EXPECT_THAT(grab.output, HasSubstr("; written by Enter, kill -USR1 "));
    EXPECT_THAT(grab.output, HasSubstr(" code 130\n"));
    EXPECT_FALSE(fs::is_empty(Out()));
}

TEST_F(GrabRing, KeepsAsManyFramesAsHalfOfTheMemoryHasRoomFor)
{
    // A group that may have 2 MiB: 1 MiB less 4 buffers of 3072 bytes is room for 337 frames.
    ChildProcess grab({"/usr/bin/unshare", "-m", "-C", "/bin/sh", "-c",
                       "mount -t tmpfs none /sys/fs/cgroup && cd /sys/fs/cgroup && echo 2097152 > memory.max && "
                       "echo 0 > memory.current && exec " +
                           kFakeLine + "grab --ring 3600 --format raw --out '" + Out() + "'"},
                      {"NQ_FAKE_PRODUCER=EventGetData.sleep=1"});
    ASSERT_TRUE(grab.WaitForOutput("nq-gev: the memory for the ring is full: it holds the last ", kLongTime))
        << grab.Output();
    ASSERT_NO_FATAL_FAILURE(Ask(grab));
    EXPECT_THAT(grab.Output(), HasSubstr("nq-gev: writes 337 frames of the last "));
    ExpectEnd(grab, SIGINT, 130);
    EXPECT_EQ(WritesIn(grab.Output()).times, 1U);
}

TEST(GrabRingMemory, IsRefusedBeforeAByteIsTakenWhenTheCameraWillSendMore)
{
    const VirtualCamera camera({"--width", "64", "--height", "48", "--fps", "100"});
    const TemporaryFolder folder;
    const auto grab = [&](const std::string& seconds) {
        return RunProgram({"/usr/bin/unshare", "-m", "-C", "/bin/sh", "-c",
                           "mount -t tmpfs none /sys/fs/cgroup && cd /sys/fs/cgroup && echo 2097152 > memory.max && "
                           "echo 0 > memory.current && exec " +
                               kOurLine + "grab --count 3 --allow-loss 1000000 --ring " + seconds + " --out '" +
                               (folder / "pictures") + "'"},
                          camera.Environment());
    };
    const Outcome refused = grab("10");
    EXPECT_EQ(refused.exitCode, 5) << refused.output;
    EXPECT_THAT(refused.output,
                HasSubstr("nq-gev: the stream did not start: a ring of 10 s is 1001 frames of 3072 bytes, and 1036288 "
                          "bytes are available for it, which is half of this machine's memory at most; at most "
                          "--ring 3 would\n"));
    const Outcome fitting = grab("3");
    EXPECT_EQ(fitting.exitCode, 0) << fitting.output;
    EXPECT_THAT(fitting.output,
                HasSubstr("nq-gev: keeps the last 3 s in memory, 301 frames of 3072 bytes; written by "));
}

TEST_F(GrabRing, IsWrittenByAnEventOfTheCamera)
{
    const VirtualCamera camera({"--width", "64", "--height", "48", "--fps", "10", "--send-buffers", "100"});
    ChildProcess grab({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "grab", "--ring", "2", "--on-event", "Test",
                       "--buffers", "100", "--format", "gendc", "--out", Out(), "--metadata", m_folder / "m"},
                      camera.Environment());
    ASSERT_TRUE(grab.WaitForOutput(", and the event Test\n", kLongTime)) << grab.Output();
    while (WritesIn(grab.Output()).times == 0)
    {
        camera.Control(R"({"cmd":"event","id":36866})"); // another one asks for nothing
        camera.Control(R"({"cmd":"event","id":36864})");
        ASSERT_EQ(grab.WaitForExit(200ms), -1) << grab.Output();
    }
    ExpectEnd(grab, SIGINT, 130);
    EXPECT_THAT(grab.Output(), HasSubstr("\nlost       0\n"));
    EXPECT_FALSE(fs::is_empty(Out()));
    const Outcome wrong = RunTool({"grab", "--ring", "2", "--on-event", "None", "--out", Out()}, camera.Environment());
    EXPECT_THAT(wrong.exitCode, testing::AnyOf(1, 2)) << wrong.output;
    EXPECT_THAT(wrong.output, HasSubstr("None"));
}

TEST_F(GrabRing, IsOfEachOfSeveralCamerasAndAllAreWrittenTogether)
{
    const TwoCameras cameras({"--width", "64", "--height", "48", "--fps", "10", "--send-buffers", "100"});
    ChildProcess grab({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "grab", "--all-cameras", "--ring", "2", "--buffers",
                       "100", "--out", Out(), "--metadata", m_folder / "m"},
                      cameras.Environment());
    const auto wrote = [&](const char* camera) {
        return std::regex_search(grab.Output(), std::regex(std::string("nq-gev: ") + camera + ": writes [1-9]"));
    };
    ASSERT_TRUE(grab.WaitForOutput("nq-gev: SN-1: keeps the last 2 s in memory", kLongTime)) << grab.Output();
    ASSERT_TRUE(grab.WaitForOutput("nq-gev: SN-2: keeps the last 2 s in memory", kLongTime)) << grab.Output();
    while (!wrote("SN-1") || !wrote("SN-2"))
    {
        grab.Signal(SIGUSR1);
        ASSERT_EQ(grab.WaitForExit(500ms), -1) << grab.Output();
    }
    ExpectEnd(grab, SIGINT, 130);
    EXPECT_EQ(Of(m_folder / "m", "{l['camera'] for l in m} == {'SN-1', 'SN-2'}"), "True");
}

TEST(GrabRingOptions, AreRefusedWhereTheyMakeNoSense)
{
    const std::pair<std::vector<std::string>, const char*> wrong[] = {
        {{"grab", "--ring", "2"}, "--ring requires --out\n"},
        {{"grab", "--ring", "2", "--out", "x", "--burst", "2", "--every", "2"}, "--burst excludes --ring\n"},
        {{"grab", "--ring", "0", "--out", "x"}, "--ring: takes a whole number from 1 to 86400 seconds, not \"0\"\n"},
        {{"grab", "--ring", "-1", "--out", "x"}, "--ring: takes a whole number from 1 to 86400 seconds, not \"-1\"\n"},
        {{"grab", "--on-event", "Test"}, "--on-event requires --ring\n"},
        {{"grab", "--ring", "2", "--out", "-"}, "--out -: takes --format raw or gendc\n"},
    };
    for (const auto& [arguments, told] : wrong)
    {
        const Outcome grab = RunOnFake("", arguments);
        EXPECT_EQ(grab.exitCode, 2) << grab.output;
        EXPECT_THAT(grab.output, StartsWith(told));
    }
    const Outcome event = RunOnFake("", {"grab", "--ring", "2", "--out", "/dev/null/x", "--on-event", "Test"});
    EXPECT_NE(event.exitCode, 0) << "the fake producer has no features: " << event.output;
}

} // namespace
