// SPDX-License-Identifier: Apache-2.0
// The device module's info commands, row by row.
#include "gev/nq_gev_device.h"

#include "gev/nq_gev_controller.h"
#include "support/device_record.h"
#include "support/gvcp_camera.h"
#include "support/trace_capture.h"

#include <cstring>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <vector>

using nq::test::GvcpCamera;
using nq::test::LoopbackCamera;
using nq::test::TraceCapture;
using testing::ElementsAre;

namespace
{

constexpr int kStringType = 1;
constexpr int kInt32Type = 5;
constexpr int kUint32Type = 6;
constexpr int kUint64Type = 8;

template <typename Value>
Value As(const std::vector<unsigned char>& bytes)
{
    Value value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

class DeviceAnswers : public testing::Test
{
  protected:
    struct Answer
    {
        int result;
        int type;
        unsigned long size;
        std::vector<unsigned char> bytes;

        std::string Text() const { return reinterpret_cast<const char*>(bytes.data()); }
    };

    DeviceAnswers()
    {
        camera.SetRegister(0x0938, 60000);
        camera.SetRegister(0x0904, 1);
        device = std::make_unique<NQGevDevice>(g_Controller.GetTL(), LoopbackCamera(), 3, nullptr);
        EXPECT_EQ(device->Open(), 0);
        camera.Forget();
    }
    ~DeviceAnswers() override
    {
        camera.SetSilent(false);
        device->Close();
    }

    Answer Info(int command, unsigned long space = 600)
    {
        Answer answer = {0, -1, space, std::vector<unsigned char>(600, 0xEE)};
        answer.result = device->GetInfo(command, &answer.type, answer.bytes.data(), &answer.size);
        return answer;
    }

    GvcpCamera camera;
    std::unique_ptr<NQGevDevice> device;
};

TEST_F(DeviceAnswers, TextsOfTheRecord)
{
    const std::vector<std::pair<int, std::string>> texts = {{0, "Model:02-00-00-00-00-01"},
                                                            {1, "Vendor"},
                                                            {2, "Model"},
                                                            {3, "GEV"},
                                                            {4, "Display"},
                                                            {7, "SN-7"},
                                                            {8, "3.1.0"}};
    for (const auto& [command, text] : texts)
    {
        const Answer answer = Info(command);
        EXPECT_EQ(answer.result, 0) << command;
        EXPECT_EQ(answer.type, kStringType) << command;
        EXPECT_EQ(answer.size, text.size() + 1) << command;
        EXPECT_EQ(answer.Text(), text) << command;
    }
    EXPECT_TRUE(camera.Accesses().empty());
}

TEST_F(DeviceAnswers, AccessStatusIsAskedOfTheCameraAtEachCall)
{
    Answer answer = Info(5);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.type, kInt32Type);
    EXPECT_EQ(answer.size, 4U);
    EXPECT_EQ(As<int>(answer.bytes), 5);
    camera.SetRegister(0x0A00, 0);
    EXPECT_EQ(As<int>(Info(5).bytes), 0);
    EXPECT_EQ(camera.Count("read 0x0A00"), 2U);
}

TEST_F(DeviceAnswers, AccessStatusOfACameraThatNoLongerAnswersIsThree)
{
    camera.SetSilent(true);
    const Answer answer = Info(5);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(As<int>(answer.bytes), 3);
}

TEST_F(DeviceAnswers, UserDefinedNameIsReadFromTheCamera)
{
    camera.SetMemory(0x00E8, "bench 3");
    const Answer answer = Info(6);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.type, kStringType);
    EXPECT_EQ(answer.Text(), "bench 3");
    EXPECT_EQ(answer.size, 8U);
    EXPECT_THAT(camera.Accesses(), ElementsAre("read memory 0x00E8, 512 bytes"));
}

TEST_F(DeviceAnswers, AUserDefinedNameWithoutAZeroByteEndsWithTheField)
{
    camera.SetMemory(0x00E8, std::string(1000, 'n'));
    const Answer answer = Info(6);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.size, 513U);
    EXPECT_EQ(answer.Text(), std::string(512, 'n'));
}

// Deliberate(FrequencyKeepsNetworkOrder)
TEST_F(DeviceAnswers, DeliberatelyTheTimestampFrequencyKeepsTheNetworkOrderOfItsHalves)
{
    camera.SetRegister(0x0940, 0x3B9ACA00);
    camera.SetRegister(0x093C, 0x00000001);
    const Answer answer = Info(9);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.type, kUint64Type);
    EXPECT_EQ(As<unsigned long>(answer.bytes), 0x0100000000CA9A3BUL);
    EXPECT_THAT(camera.Accesses(), ElementsAre("read 0x0940", "read 0x093C"));
}

TEST_F(DeviceAnswers, PersistentAddressesAreInHostOrder)
{
    camera.SetRegister(0x064C, 0xC0A8010A);
    camera.SetRegister(0x065C, 0xFFFFFF00);
    camera.SetRegister(0x066C, 0xC0A80101);
    const std::vector<std::pair<int, unsigned int>> values = {
        {0xB006, 0xC0A8010A}, {0xB007, 0xFFFFFF00}, {0xB008, 0xC0A80101}};
    for (const auto& [command, value] : values)
    {
        const Answer answer = Info(command);
        EXPECT_EQ(answer.result, 0) << command;
        EXPECT_EQ(answer.type, kUint32Type) << command;
        EXPECT_EQ(answer.size, 4U) << command;
        EXPECT_EQ(As<unsigned int>(answer.bytes), value) << command;
    }
    EXPECT_THAT(camera.Accesses(), ElementsAre("read 0x064C", "read 0x065C", "read 0x066C"));
}

// Deliberate(AnswersFromAnEmptyRecord)
TEST_F(DeviceAnswers, DeliberatelyTheAddressCommandsAnswerFromAnEmptyRecord)
{
    EXPECT_EQ(Info(0xB000).type, kUint64Type);
    EXPECT_EQ(Info(0xB000).size, 8U);
    EXPECT_EQ(As<unsigned long>(Info(0xB000).bytes), 0U);
    for (int command = 0xB001; command <= 0xB005; ++command)
    {
        const Answer answer = Info(command);
        EXPECT_EQ(answer.result, 0) << command;
        EXPECT_EQ(answer.type, kUint32Type) << command;
        EXPECT_EQ(answer.size, 4U) << command;
        EXPECT_EQ(As<unsigned int>(answer.bytes), 0U) << command;
    }
    EXPECT_TRUE(camera.Accesses().empty());
}

TEST_F(DeviceAnswers, UnknownCommandsAreNotImplementedAndClearTheBuffer)
{
    const TraceCapture trace;
    for (const int command : {-1, 10, 1000, 0xAFFF, 0xB009})
    {
        const Answer answer = Info(command, 8);
        EXPECT_EQ(answer.result, -1003) << command;
        EXPECT_EQ(As<unsigned long>(answer.bytes), 0U) << command;
        EXPECT_EQ(answer.bytes[8], 0xEE) << command;
    }
    EXPECT_THAT(TraceCapture::At(2),
                ElementsAre("GetInfo GC_ERR_NOT_IMPLEMENTED :-1", "GetInfo GC_ERR_NOT_IMPLEMENTED :10",
                            "GetInfo GC_ERR_NOT_IMPLEMENTED :1000", "GetInfo GC_ERR_NOT_IMPLEMENTED :45055",
                            "GetInfo GC_ERR_NOT_IMPLEMENTED :45065"));
}

TEST_F(DeviceAnswers, TypeAndSizeAreRequired)
{
    int type = 0;
    unsigned long size = 0;
    const TraceCapture trace;
    EXPECT_EQ(device->GetInfo(0, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(device->GetInfo(0, &type, nullptr, nullptr), -1009);
    EXPECT_THAT(TraceCapture::At(2),
                ElementsAre("GetInfo GC_ERR_INVALID_PARAMETER", "GetInfo GC_ERR_INVALID_PARAMETER"));
}

TEST_F(DeviceAnswers, ANullBufferAsksForTheSizeAndASmallOneIsTooSmall)
{
    int type = 0;
    unsigned long size = 0;
    EXPECT_EQ(device->GetInfo(1, &type, nullptr, &size), 0);
    EXPECT_EQ(size, 7U);
    const Answer answer = Info(1, 6);
    EXPECT_EQ(answer.result, -1016);
    EXPECT_EQ(answer.size, 7U);
}

TEST_F(DeviceAnswers, FailedCameraReadsGiveTheirCodeAndTheirText)
{
    for (const unsigned int address : {0x00E8U, 0x0940U, 0x064CU, 0x065CU, 0x066CU})
    {
        camera.SetStatus(address, 0x8003);
    }
    const TraceCapture trace;
    for (const int command : {6, 9, 0xB006, 0xB007, 0xB008})
    {
        EXPECT_EQ(Info(command).result, -1010) << command;
    }
    camera.SetStatus(0x0940, 0);
    camera.SetStatus(0x093C, 0x8003);
    EXPECT_EQ(Info(9).result, -1010);
    EXPECT_TRUE(TraceCapture::Has(2, "_getUserDefinedName ReadPort(GVCP_USERDEFINED_NAME):-1010"));
    EXPECT_TRUE(TraceCapture::Has(2, "_getTimestampFreq ReadPort(GVCP_TIMESTAMP_TICK_FREQUENCY_LO):-1010"));
    EXPECT_TRUE(TraceCapture::Has(2, "_getTimestampFreq ReadPort(GVCP_TIMESTAMP_TICK_FREQUENCY_HI):-1010"));
}

// Deliberate(TextNamesTheTimestamp)
TEST_F(DeviceAnswers, DeliberatelyAFailedPersistentAddressNamesTheTimestampRegister)
{
    for (const unsigned int address : {0x064CU, 0x065CU, 0x066CU})
    {
        camera.SetStatus(address, 0x8003);
    }
    const TraceCapture trace;
    for (const int command : {0xB006, 0xB007, 0xB008})
    {
        EXPECT_EQ(Info(command).result, -1010) << command;
    }
    for (const std::string name : {"_getPersistentIP", "_getPersistentSubnet", "_getPersistentGateway"})
    {
        EXPECT_TRUE(TraceCapture::Has(2, name + " ReadPort(GVCP_TIMESTAMP_TICK_FREQUENCY_LO):-1010")) << name;
    }
}

} // namespace
