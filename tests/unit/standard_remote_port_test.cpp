// SPDX-License-Identifier: Apache-2.0
// The remote device's port by the standard's answers: any address and size, and the camera's refusals by their codes.
#include "gev/nq_gev_remote_device.h"
#include "gige/nq_gev_tl_linux.h"
#include "support/device_record.h"
#include "support/fake_module.h"
#include "support/fence.h"
#include "support/gvcp_camera.h"
#include "support/ramp.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>
#include <memory>

using nq::test::Bytes;
using nq::test::FakeModule;
using nq::test::Fence;
using nq::test::GvcpCamera;
using nq::test::LoopbackCamera;
using nq::test::Ramp;
using nq::test::TraceCapture;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class StandardRemotePort : public testing::Test
{
  protected:
    void Open(int access)
    {
        camera.SetRegister(0x0938, 600000);
        device = std::make_unique<NQGevRemoteDevice>(&tl, LoopbackCamera(), access, &root);
        ASSERT_EQ(device->Open(), 0);
        ASSERT_TRUE(camera.WaitFor("read 0x0D3C"));
        camera.Forget();
    }

    /// The bytes read; empty when `code` is not 0, and then nothing was written to the buffer.
    Bytes Read(unsigned long address, unsigned long size, int code = 0)
    {
        Bytes bytes(size + 1, 0xEE);
        unsigned long given = size;
        EXPECT_EQ(device->ReadPort(address, bytes.data(), &given), code) << std::hex << address;
        EXPECT_EQ(given, size);
        EXPECT_EQ(bytes.back(), 0xEE);
        if (code != 0)
        {
            EXPECT_THAT(bytes, Each(0xEE));
            return {};
        }
        bytes.pop_back();
        return bytes;
    }

    int Write(unsigned long address, const Bytes& bytes)
    {
        const Fence fenced(bytes); // not a byte behind the caller's may be looked at
        unsigned long size = bytes.size();
        const int code = device->WritePort(address, fenced.Data(), &size);
        EXPECT_EQ(size, bytes.size());
        return code;
    }

    std::vector<std::string> Accesses() { return camera.AccessesBut("read 0x0A00"); }

    GvcpCamera camera;
    NQGevTL tl;
    FakeModule root{kStandardAnswers};
    std::unique_ptr<NQGevRemoteDevice> device;
};

class StandardRemoteControl : public StandardRemotePort
{
  protected:
    void SetUp() override { Open(3); }
};

TEST_F(StandardRemoteControl, ReadsAnyRangeByTheWordsAroundIt)
{
    camera.SetMemory(0xA000, Ramp(64));
    EXPECT_EQ(Read(0xA000, 4), (Bytes{0, 7, 14, 21}));
    EXPECT_EQ(Read(0xA001, 2), (Bytes{7, 14}));
    EXPECT_EQ(Read(0xA003, 2), (Bytes{21, 28}));
    EXPECT_EQ(Read(0xA002, 7), (Bytes{14, 21, 28, 35, 42, 49, 56}));
    EXPECT_THAT(Accesses(), ElementsAre("read 0xA000", "read 0xA000", "read memory 0xA000, 8 bytes",
                                        "read memory 0xA000, 12 bytes"));
}

TEST_F(StandardRemoteControl, ReadsMoreThanOneAccessTakesInSeveral)
{
    camera.SetMemory(0xA000, Ramp(1028));
    const Bytes all = Ramp(1028);
    EXPECT_EQ(Read(0xA001, 1025), Bytes(all.begin() + 1, all.begin() + 1026));
    EXPECT_THAT(Accesses(), ElementsAre("read memory 0xA000, 512 bytes", "read memory 0xA200, 512 bytes",
                                        "read memory 0xA400, 4 bytes"));
}

TEST_F(StandardRemoteControl, WritesAPartOfAWordAndKeepsTheRest)
{
    camera.SetMemory(0xA000, Ramp(16));
    EXPECT_EQ(Write(0xA001, {0x41, 0x42}), 0);
    EXPECT_EQ(camera.GetMemory(0xA000, 8), (Bytes{0, 0x41, 0x42, 21, 28, 35, 42, 49}));
    EXPECT_EQ(Write(0xA000, {0x43}), 0);
    EXPECT_EQ(camera.GetMemory(0xA000, 8), (Bytes{0x43, 0x41, 0x42, 21, 28, 35, 42, 49}));
    EXPECT_EQ(Write(0xA003, {1, 2, 3, 4, 5, 6}), 0);
    EXPECT_EQ(camera.GetMemory(0xA000, 12), (Bytes{0x43, 0x41, 0x42, 1, 2, 3, 4, 5, 6, 63, 70, 77}));
    EXPECT_EQ(Write(0xA004, {9, 9, 9, 9}), 0);
    EXPECT_EQ(Write(0xA004, {8, 8, 8, 8, 8}), 0);
    EXPECT_EQ(camera.GetMemory(0xA000, 12), (Bytes{0x43, 0x41, 0x42, 1, 8, 8, 8, 8, 8, 63, 70, 77}));
    EXPECT_THAT(Accesses(), testing::Contains(testing::HasSubstr("write memory 0xA000")).Times(1));
}

TEST_F(StandardRemoteControl, AWriteOfWholeWordsReadsNothing)
{
    EXPECT_EQ(Write(0xA000, {1, 2, 3, 4}), 0);
    EXPECT_EQ(Write(0xA000, Ramp(516)), 0);
    EXPECT_EQ(camera.GetMemory(0xA000, 516), Ramp(516));
    for (const std::string& access : Accesses())
    {
        EXPECT_TRUE(access.starts_with("write")) << access;
    }
}

TEST_F(StandardRemoteControl, AWriteWhoseEndCannotBeReadIsNotDone)
{
    camera.SetMemory(0xA000, Ramp(8));
    camera.SetStatus(0xA004, 0x8003);
    EXPECT_EQ(Write(0xA000, {1, 2, 3, 4, 5}), -1015);
    EXPECT_EQ(camera.GetMemory(0xA000, 8), Ramp(8));
}

TEST_F(StandardRemoteControl, RefusalsOfTheCameraHaveTheirOwnCodes)
{
    struct Row
    {
        std::uint16_t status;
        int read;
        int write;
    };
    for (const Row& row :
         {Row{0x8002, -1009, -1019}, Row{0x8003, -1015, -1015}, Row{0x8004, -1005, -1005}, Row{0x8006, -1005, -1005},
          Row{0x8007, -1022, -1022}, Row{0x8001, -1010, -1010}, Row{0x8FFF, -1010, -1010}})
    {
        SCOPED_TRACE(row.status);
        camera.SetStatus(0xA000, row.status);
        Read(0xA000, 4, row.read);
        Read(0xA000, 8, row.read);
        EXPECT_EQ(Write(0xA000, {1, 2, 3, 4}), row.write);
        EXPECT_EQ(Write(0xA000, {1, 2, 3, 4, 5, 6, 7, 8}), row.write);
    }
    camera.SetStatus(0xA200, 0x8003);
    camera.SetStatus(0xA000, 0);
    const TraceCapture trace;
    Read(0xA000, 1024, -1015);
    EXPECT_TRUE(trace.Has(2, "_gvcpReadMem failed! Address:0xa200"));
}

TEST_F(StandardRemoteControl, ACameraThatDoesNotAnswerIsAnIoError)
{
    camera.SetSilent(true);
    Read(0xA000, 4, -1010);
    EXPECT_EQ(Write(0xA000, {1, 2, 3, 4}), -1010);
}

TEST_F(StandardRemoteControl, BeyondTheAddressesOfACameraNothingIsSent)
{
    Read(0x100000000, 4, -1015);
    Read(0xFFFFFFFE, 3, -1015);
    EXPECT_EQ(Write(0x100000000, {1, 2, 3, 4}), -1015);
    EXPECT_EQ(Write(0xFFFFFFFE, {1, 2, 3}), -1015);
    EXPECT_EQ(Write(0xA001, {}), 0);
    EXPECT_EQ(Read(0xA001, 0), Bytes());
    EXPECT_THAT(Accesses(), IsEmpty());
    camera.SetMemory(0xFFFFFFFC, Bytes{1, 2, 3, 4});
    EXPECT_EQ(Read(0xFFFFFFFE, 2), (Bytes{3, 4}));
}

TEST_F(StandardRemotePort, AWriteToACameraOpenedReadOnlyIsDeniedAndNotSent)
{
    Open(2);
    EXPECT_EQ(Write(0xA000, {1, 2, 3, 4}), -1005);
    EXPECT_EQ(Write(0xA000, {1}), -1005);
    EXPECT_THAT(Accesses(), IsEmpty());
    camera.SetRegister(0xA000, 0x01020304);
    EXPECT_EQ(Read(0xA000, 4), (Bytes{1, 2, 3, 4}));
}

} // namespace
