// SPDX-License-Identifier: Apache-2.0
// What nq-gev grab tells while it runs, for how long it runs, and the memory that it does not take.
#include "support/json_schema.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <gmock/gmock.h>
#include <sstream>

namespace
{

using namespace nq::test;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

std::vector<std::string> LinesOf(const std::string& path)
{
    std::istringstream text(BytesOf(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
    {
        lines.push_back(line);
    }
    return lines;
}

const std::string kTime = "\"arrival\":\"[0-9]{8}T[0-9]{6}\\.[0-9]{6}Z\"";

TEST(GrabMetadata, HasOneLineOfJsonPerFrame)
{
    const TemporaryFolder folder;
    // The second frame has id 5 and is short, the third is refused; the camera's clock is read for the second.
    const Outcome grab =
        RunOnFake("DSGetBufferInfo.16@2.value=5\nDSGetBufferInfo.9@2.value=100\nDSGetBufferInfo.7@2.value=1\n"
                  "DSGetBufferInfo.9@3.value=4000\nDSGetBufferInfo.3@2.type=8\nDSGetBufferInfo.3@2.value=77\n"
                  "DSGetBufferInfo.28@2.type=8\nDSGetBufferInfo.28@2.value=77000",
                  {"grab", "--count", "3", "--metadata", folder / "frames.jsonl"});
    EXPECT_EQ(grab.exitCode, 7) << grab.output;
    const std::vector<std::string> lines = LinesOf(folder / "frames.jsonl");
    ASSERT_EQ(lines.size(), 3U);
    for (const std::string& line : lines)
    {
        ExpectFitsSchema("metadata", line);
    }
    const std::string form = ",\"width\":64,\"height\":48,\"pixel_format\":\"0x01080001\",\"flags\":";
    const std::string head = "\\{\"id\":([0-9]+),\"camera\":\"Name\",\"camera_id\":\"Camera\",";
    EXPECT_THAT(lines[0], ContainsRegex("^" + head + "\"camera_time\":null,\"camera_time_ns\":null," + kTime));
    EXPECT_THAT(lines[0], testing::EndsWith(",\"size\":3072" + form + "[],\"lost_before\":0}"));
    EXPECT_THAT(lines[1], ContainsRegex("^" + head + "\"camera_time\":77,\"camera_time_ns\":77000," + kTime));
    EXPECT_THAT(lines[1], testing::StartsWith("{\"id\":5,"));
    EXPECT_THAT(lines[1], testing::EndsWith(",\"size\":100" + form + "[\"incomplete\"],\"lost_before\":3}"));
    EXPECT_THAT(lines[2], testing::EndsWith(",\"size\":4000" + form + "[\"refused\"],\"lost_before\":0}"));
}

TEST(GrabMetadata, ReplacesNothingUnaskedAndTellsWhyItCannotBeWritten)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "m") << "precious";
    const Outcome refused = RunOnFake("", {"grab", "--metadata", folder / "m"});
    EXPECT_EQ(refused.exitCode, 1) << refused.output;
    EXPECT_THAT(refused.output,
                HasSubstr("nq-gev: " + (folder / "m") + " is there already; --overwrite replaces it\n"));
    EXPECT_EQ(BytesOf(folder / "m"), "precious");
    EXPECT_EQ(RunOnFake("", {"grab", "--overwrite", "--metadata", folder / "m"}).exitCode, 0);
    EXPECT_EQ(LinesOf(folder / "m").size(), 1U);
    const Outcome full = RunOnFake("", {"grab", "--overwrite", "--metadata", "/dev/full"});
    EXPECT_EQ(full.exitCode, 1) << full.output;
    EXPECT_THAT(full.output, HasSubstr("nq-gev: cannot write /dev/full: No space left on device\n"));
    EXPECT_THAT(full.output, HasSubstr("frames     1\n"));
}

TEST(GrabMetadata, ThatCannotBeWrittenIsToldBesideWhatElseFailed)
{
    // One frame, and then none: what cannot be written is noticed behind that.
    const std::string silence = "EventGetData@2.code=-1011\nEventGetData@3.code=-1011";
    const std::vector<std::string> two = {"grab", "--count", "2", "--frame-timeout", "300"};
    const Outcome lines = RunOnFake(silence, Joined(two, {"--overwrite", "--metadata", "/dev/full"}));
    EXPECT_EQ(lines.exitCode, 6) << lines.output;
    EXPECT_THAT(lines.output, HasSubstr("nq-gev: no frame for 300 ms after 1 of 2: "));
    EXPECT_THAT(lines.output, HasSubstr("nq-gev: cannot write /dev/full: No space left on device\n"));
    const Outcome picture =
        RunProgram({"/bin/sh", "-c", kFakeLine + "grab --count 2 --frame-timeout 300 --format raw --out - >/dev/full"},
                   {"NQ_FAKE_PRODUCER=" + silence});
    EXPECT_EQ(picture.exitCode, 6) << picture.output;
    EXPECT_THAT(picture.output, HasSubstr("nq-gev: no frame for 300 ms after 1 of 2: "));
    EXPECT_THAT(picture.output, HasSubstr(": No space left on device\n"));
    // One cause is told once.
    const Outcome same =
        RunOnFake("EventGetData.sleep=100", {"grab", "--count", "5", "--overwrite", "--metadata", "/dev/full"});
    EXPECT_EQ(same.exitCode, 1) << same.output;
    EXPECT_EQ(same.output.find("/dev/full"), same.output.rfind("/dev/full")) << same.output;
}

TEST(GrabMetadata, GoesToStandardOutputBesideTheSummary)
{
    const TemporaryFolder folder;
    const auto type = [&folder](const std::string& arguments) {
        return RunProgram({"/usr/bin/env", "-C", folder.Path(), "/bin/sh", "-c", kFakeLine + arguments});
    };
    const Outcome lines = type("grab --count 2 --metadata - 2>said");
    EXPECT_EQ(lines.exitCode, 0) << lines.output;
    EXPECT_THAT(lines.output, testing::MatchesRegex("\\{\"id\":1,[^\n]*\\}\n\\{\"id\":2,[^\n]*\\}\n"));
    EXPECT_THAT(BytesOf(folder / "said"), HasSubstr("\nframes     2\n"));
    EXPECT_EQ(type("--json grab --count 3 --metadata - 2>said | wc -l").output, "3\n");
    const Outcome full = type("grab --metadata - >/dev/full");
    EXPECT_EQ(full.exitCode, 1) << full.output;
    EXPECT_THAT(full.output, HasSubstr("nq-gev: cannot write the output: No space left on device\n"));
    const Outcome both = type("grab --format raw --out - --metadata -");
    EXPECT_EQ(both.exitCode, 2);
    EXPECT_THAT(both.output, testing::StartsWith("--metadata -: standard output has the frames of --out -\n"));
    EXPECT_EQ(folder.Files().size(), 1U) << "what was said, and no file called -";
}

TEST(GrabMetadata, IsLeftAsItWasWhenTheStreamDoesNotStart)
{
    const TemporaryFolder folder;
    const char* lies = "DSStartAcquisition.code=-1001";
    EXPECT_EQ(RunOnFake(lies, {"grab", "--metadata", folder / "m"}).exitCode, 5);
    EXPECT_TRUE(folder.Files().empty());
    std::ofstream(folder / "m") << "older";
    EXPECT_EQ(RunOnFake(lies, {"grab", "--overwrite", "--metadata", folder / "m"}).exitCode, 5);
    EXPECT_EQ(BytesOf(folder / "m"), "older");
}

TEST(GrabDuration, EndsAfterItsTimeWithWhateverCame)
{
    const auto before = std::chrono::steady_clock::now();
    const Outcome grab = RunOnFake("EventGetData.sleep=10", {"grab", "--duration", "2"});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
    EXPECT_THAT(grab.output, ContainsRegex("frames     [1-9]"));
    const Outcome counted = RunOnFake("", {"grab", "--duration", "1000", "--count", "7"});
    EXPECT_EQ(counted.exitCode, 0) << counted.output;
    EXPECT_THAT(counted.output, HasSubstr("frames     7\n"));
}

TEST(GrabDuration, WithoutAnyFrameIsAFailure)
{
    const VirtualCamera camera;
    const Outcome grab = RunTool({"grab", "TriggerMode=On", "--duration", "1"}, camera.Environment());
    EXPECT_EQ(grab.exitCode, 6) << grab.output;
    EXPECT_THAT(grab.output,
                HasSubstr("nq-gev: no frame for 1 s: the camera 10.77.0.2 answers on its control channel but "
                          "sends no frames: it waits for a trigger"));
}

TEST(GrabProgress, IsALineEachTenSecondsWithoutATerminal)
{
    const TemporaryFolder folder;
    const auto begin = std::chrono::steady_clock::now();
    const Outcome grab =
        RunOnFake("EventGetData.sleep=100\nDSGetBufferInfo.16@2.value=4",
                  {"grab", "--count", "115", "--allow-loss", "9", "--overwrite", "--out", folder.Path()});
    const auto tens = (std::chrono::steady_clock::now() - begin) / std::chrono::seconds(10);
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    const std::string line = "[0-9]+/115 frames, [0-9.]+ frames/s, 2 lost, [0-9.]+ GB free\n";
    EXPECT_THAT(grab.output, testing::MatchesRegex("(" + line + ")+camera  (.|\n)*\nbuffers (.|\n)*"));
    const std::regex progress(line);
    const std::sregex_iterator lines(grab.output.begin(), grab.output.end(), progress);
    EXPECT_LE(std::distance(lines, {}), tens) << grab.output;
}

TEST(GrabProgress, IsInPlaceOnATerminal)
{
    const TemporaryFolder folder;
    const Outcome grab = RunProgram({"/usr/bin/script", "-qec", kFakeLine + "grab --count 40", folder / "typescript"},
                                    {"NQ_FAKE_PRODUCER=EventGetData.sleep=50"});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, ContainsRegex("\r[0-9]+/40 frames, [0-9.]+ frames/s, 0 lost\033\\[K\r[0-9]+/40 frames, "));
    EXPECT_THAT(grab.output, Not(HasSubstr("free")));
}

uint64_t MemoryInfo(const std::string& name)
{
    const std::string text = BytesOf("/proc/meminfo");
    return std::strtoull(text.c_str() + text.find(name) + name.size(), nullptr, 10) * 1024;
}

TEST(GrabBuffers, BeyondTheAvailableMemoryAreRefusedBeforeAByteIsTaken)
{
    // Less than there is, but more than can be available: the programs that run have their part of it, whatever is
    // given back meanwhile. Announcing a buffer would raise SIGKILL.
    const uint64_t buffers = (MemoryInfo("MemTotal:") >> 24) - 1;
    const std::string lies = "DSGetInfo.7.value=16777216\nDSAllocAndAnnounceBuffer.signal=9\nDSAnnounceBuffer.signal=9";
    const Outcome grab = RunOnFake(lies, {"grab", "--buffers", std::to_string(buffers)});
    EXPECT_EQ(grab.exitCode, 5) << grab.output;
    EXPECT_THAT(grab.output,
                ContainsRegex("nq-gev: the stream did not start: [0-9]+ buffers for the payload of 16777216 "
                              "bytes do not fit this machine's memory, of which [0-9]+ bytes are "
                              "available; at most --buffers [0-9]+ would\n"));
}

TEST(GrabBuffers, OfWhichNotOneFitsAreToldSo)
{
    const Outcome grab = RunOnFake("DSGetInfo.7.value=1000000000000000000", {"grab"});
    EXPECT_EQ(grab.exitCode, 5) << grab.output;
    EXPECT_THAT(grab.output, ContainsRegex("of which [0-9]+ bytes are available; not one would\n"));
}

TEST(GrabBuffers, MayTakeTheMemoryThatAControlGroupUsesForFiles)
{
    // A group that may have 1 GiB: 100 MiB of it are of programs, the rest of files that were read and written.
    const auto grab = [&](const std::string& buffers) {
        return RunProgram({"/usr/bin/unshare", "-m", "-C", "/bin/sh", "-c",
                           "mount -t tmpfs none /sys/fs/cgroup && cd /sys/fs/cgroup && echo 1073741824 > memory.max && "
                           "echo 1073741824 > memory.current && printf 'anon 104857600\\ninactive_file "
                           "868935680\\nactive_file 99948544\\n' > memory.stat && exec " +
                               kFakeLine + "grab --buffers " + buffers},
                          {"NQ_FAKE_PRODUCER=DSGetInfo.7.value=1048576"});
    };
    EXPECT_EQ(grab("900").exitCode, 0) << grab("900").output;
    const Outcome beyond = grab("1000");
    EXPECT_EQ(beyond.exitCode, 5) << beyond.output;
    EXPECT_THAT(beyond.output, HasSubstr("of which 968884224 bytes are available; at most --buffers 924 would\n"));
}

TEST(GrabBuffers, BeyondTheLockableMemoryAreRefusedWhereADevicePins)
{
    const VirtualCamera camera({"--width", "640", "--height", "480"});
    // A machine that shows an RDMA device; a root without the right to lock any amount.
    const auto grab = [&](const std::string& limit) {
        return RunProgram(
            {"/usr/bin/unshare", "-m", "/bin/sh", "-c",
             "mount -t tmpfs none /sys/class && mkdir -p /sys/class/infiniband/rdma0 && exec prlimit --memlock=" +
                 limit + " setpriv --bounding-set=-ipc_lock --inh-caps=-ipc_lock env " + camera.Environment()[0] + " " +
                 kOurLine + "grab --count 2"},
            {camera.Environment()[1]});
    };
    const Outcome small = grab("65536:65536");
    EXPECT_EQ(small.exitCode, 5) << small.output;
    EXPECT_THAT(small.output,
                HasSubstr("nq-gev: the stream did not start: this user may lock 64 KiB of memory (RLIMIT_MEMLOCK, see "
                          "`ulimit -l`), and the frame buffers need 1200 KiB\n"));
    const Outcome large = grab("1228800:1228800");
    EXPECT_EQ(large.exitCode, 0) << large.output;
}

} // namespace
