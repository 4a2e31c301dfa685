// SPDX-License-Identifier: Apache-2.0
// Features, values of pixels and the doctor's findings as the page of nq-gev view gets them.
#include "support/view.h"
#include "support/virtual_camera.h"

#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::HasSubstr;
using testing::StartsWith;

class ViewDetails : public testing::Test
{
  protected:
    /// Frames for many seconds fit on both sides, so that a view that is kept waiting loses none.
    explicit ViewDetails(const std::vector<std::string>& picture = {"--width", "64", "--height", "48"})
        : m_camera(Joined({"--fps", "20", "--send-buffers", "256"}, picture))
    {
        m_view.NumbersWith("\"state\":\"running\"");
    }

    std::string Set(const std::string& name, const std::string& value) const
    {
        return m_view.Post("feature?camera=0", R"({"name":")" + name + R"(","value":")" + value + "\"}");
    }

    /// One picture, after which there are values to ask for.
    std::string Picture() const
    {
        HttpClient client(m_view.Port());
        client.Send(m_view.Request("GET", "pictures"));
        return client.Read([](const std::string& read) { return read.find("\"frame_id\":") != std::string::npos; });
    }

    const VirtualCamera m_camera;
    const View m_view{{"--buffers", "300"}, m_camera.Environment()};
};

TEST_F(ViewDetails, ListsTheFeaturesAsTheVerbDoes)
{
    const std::string features = m_view.Get("features?camera=0");
    EXPECT_THAT(features, HasSubstr(R"({"name":"Width","type":"integer","access":"RO","value":64,"text":"64",)"));
    EXPECT_THAT(features, HasSubstr(R"("category":"AcquisitionControl","display_name":)"));
}

/// JavaScript would have made them 9223372036854775000.
TEST_F(ViewDetails, TellsNumbersOfMoreThan53BitsAsTexts)
{
    const std::string features = m_view.Get("features?camera=0");
    EXPECT_THAT(features, HasSubstr("\"max\":\"9223372036854774784\""));
    EXPECT_THAT(features, testing::Not(HasSubstr(":9223372036854774784")));
    EXPECT_THAT(features, HasSubstr("\"max\":4294967295"));
}

TEST_F(ViewDetails, SetFeaturesOfEveryTypeAndReadThemBack)
{
    EXPECT_THAT(Set("ExposureTime", "1234"), HasSubstr("\"value\":1234.0,"));
    EXPECT_THAT(Set("DeviceUserID", "bench"), HasSubstr("\"value\":\"bench\","));
    EXPECT_THAT(Set("LineInverter", "true"), HasSubstr("\"value\":true,"));
    EXPECT_THAT(Set("GainSelector", "DigitalAll"), HasSubstr("\"value\":\"DigitalAll\","));
    EXPECT_THAT(Set("GevHeartbeatTimeout", "3500"), HasSubstr("\"value\":3500,"));
    EXPECT_THAT(m_view.Post("execute?camera=0", R"({"name":"TimestampLatch"})"), StartsWith("HTTP/1.1 200 OK\r\n"));
}

/// The page tells no other code and no other text.
TEST_F(ViewDetails, RefusesFeaturesWithTheTextAndTheCodeOfSet)
{
    for (const auto& [name, value] :
         {std::pair("ExposureTime", "-1"), std::pair("Nothing", "1"), std::pair("LineInverter", "perhaps"),
          std::pair("TestPattern", "Mess"), std::pair("DeviceVendorName", "me")})
    {
        const std::string refused = Set(name, value);
        EXPECT_THAT(refused, StartsWith("HTTP/1.1 409 Conflict\r\n"));
        const size_t text = refused.find("{\"error\":\"") + 10;
        EXPECT_THAT(refused, testing::EndsWith("\"code\":2}")) << name;
        EXPECT_THAT(refused.substr(text), StartsWith(std::string(name) + (name == std::string("Nothing") ? "" : "=")))
            << refused;
    }
    EXPECT_THAT(Set("ExposureTime", "-1"), HasSubstr("ExposureTime=-1: takes "));
}

TEST_F(ViewDetails, TellsTheValuesOfPixelsThatTheCameraSent)
{
    Picture();
    const std::string pixels = m_view.Get("pixels?camera=0&x=10&y=20&width=2&height=2");
    // The ramp: value(x, y) = (x + y + 7 * frame id) modulo 256.
    const auto first = static_cast<unsigned>(30 + 7 * static_cast<uint64_t>(NumberIn(pixels, "frame_id")));
    const auto cell = [&](unsigned more) { return "[" + std::to_string((first + more) % 256) + "]"; };
    EXPECT_THAT(pixels, HasSubstr("\"values\":[" + cell(0) + "," + cell(1) + "," + cell(1) + "," + cell(2) + "]"));
    EXPECT_THAT(m_view.Get("pixels?camera=0&x=63&y=47&width=64&height=64"),
                HasSubstr("\"x\":63,\"y\":47,\"width\":1,\"height\":1,"));
    const std::string line = m_view.Get("line?camera=0&x0=0&y0=0&x1=2&y1=0");
    const auto start = 7 * static_cast<uint64_t>(NumberIn(line, "frame_id"));
    EXPECT_THAT(line, HasSubstr("\"values\":[[" + std::to_string(start % 256) + "],[" +
                                std::to_string((start + 1) % 256) + "],[" + std::to_string((start + 2) % 256) + "]]"));
    const std::string histogram = m_view.Get("histogram?camera=0");
    EXPECT_THAT(histogram, HasSubstr("\"channels\":1,\"largest\":255,\"histograms\":[{\"bins\":["));
}

class ViewOf12Bits : public ViewDetails
{
  protected:
    ViewOf12Bits() : ViewDetails({"--width", "64", "--height", "48", "--pixel-format", "Mono12p"}) {}
};

TEST_F(ViewOf12Bits, TellsTheWholeValues)
{
    Picture();
    const std::string pixels = m_view.Get("pixels?camera=0&x=3&y=4&width=1&height=1");
    const auto value = (7 + 7 * static_cast<uint64_t>(NumberIn(pixels, "frame_id"))) % 4096;
    EXPECT_THAT(pixels, HasSubstr("\"largest\":4095,"));
    EXPECT_THAT(pixels, HasSubstr("\"values\":[[" + std::to_string(value) + "]]"));
}

/// A browser shows no picture of that size: JPEGs have 65500 pixels a side at most.
class ViewOfALongLine : public ViewDetails
{
  protected:
    ViewOfALongLine() : ViewDetails({"--width", "65535", "--height", "2"}) {}
};

TEST_F(ViewOfALongLine, TellsItsValuesAndItsHistogram)
{
    EXPECT_THAT(Picture(), HasSubstr("\"problem\":\"65535 x 2 pixels are no JPEG: 65500 a side are the most\""));
    const std::string pixels = m_view.Get("pixels?camera=0&x=65534&y=1&width=1&height=1");
    const auto value = (65535 + 7 * static_cast<uint64_t>(NumberIn(pixels, "frame_id"))) % 256;
    EXPECT_THAT(pixels, HasSubstr("\"values\":[[" + std::to_string(value) + "]]"));
    EXPECT_THAT(m_view.Get("histogram?camera=0"), HasSubstr("\"least\":0,\"largest\":255,"));
    EXPECT_THAT(m_view.Get("line?camera=0&x0=0&y0=0&x1=65534&y1=1"), StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST_F(ViewDetails, TellsWhatTheDoctorFindsWhileTheStreamRuns)
{
    const std::string findings = m_view.Post("doctor");
    EXPECT_THAT(findings, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(findings, HasSubstr("\r\nContent-Type: application/json\r\n"));
    EXPECT_THAT(findings, HasSubstr("\"id\":\"producer.load\""));
    EXPECT_THAT(findings, HasSubstr("\"verdict\":\"right\",\"text\":\"this page has it\",\"mend\":null}"));
    EXPECT_THAT(m_view.NumbersWith("\"state\":\"running\""), HasSubstr("\"lost\":0,"));
}

} // namespace
