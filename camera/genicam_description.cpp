// SPDX-License-Identifier: Apache-2.0
// The camera's register description for GenICam.
#include "genicam_description.h"

#include "bootstrap.h"
#include "feature_registers.h"
#include "genicam_writer.h"
#include "message_channel.h"

#include <memory>
#include <stdexcept>
#include <zip.h>

namespace nq::camera
{

namespace
{

using Writer = GenicamWriter;

Writer::Traits ReadOnly(std::string visibility = "Beginner")
{
    Writer::Traits traits;
    traits.access = "RO";
    traits.visibility = std::move(visibility);
    return traits;
}

Writer::Traits LockedWhileStreaming(std::vector<std::string> invalidators = {})
{
    Writer::Traits traits;
    traits.lockedBy = "TLParamsLocked";
    traits.invalidators = std::move(invalidators);
    return traits;
}

void WriteDeviceControl(Writer& xml)
{
    xml.Category("DeviceControl");
    xml.Text("DeviceVendorName", bootstrap::kManufacturerName, 32, ReadOnly());
    xml.Text("DeviceModelName", bootstrap::kModelName, 32, ReadOnly());
    xml.Text("DeviceManufacturerInfo", bootstrap::kManufacturerInfo, 48, ReadOnly());
    xml.Text("DeviceVersion", bootstrap::kDeviceVersion, 32, ReadOnly());
    xml.Text("DeviceSerialNumber", bootstrap::kSerialNumber, 16, ReadOnly());
    xml.Text("DeviceUserID", bootstrap::kUserName, 16, {});
    Writer::Traits temperature = ReadOnly("Expert");
    temperature.unit = "C";
    temperature.volatileValue = true;
    xml.Float("DeviceTemperature", feature::kDeviceTemperature, "-40", "125", temperature);
    Writer::Traits guru;
    guru.visibility = "Guru";
    xml.Command("DeviceReset", feature::kDeviceReset, 1, guru);
    xml.Command("TimestampLatch", bootstrap::kTimestampControl, bootstrap::kTimestampLatch, {});
    xml.Command("TimestampReset", bootstrap::kTimestampControl, bootstrap::kTimestampReset, {});
    xml.Raw("TimestampLatchValue", "  <IntReg Name=\"TimestampLatchValue\" NameSpace=\"Standard\">\n"
                                   "    <Visibility>Expert</Visibility>\n"
                                   "    <Address>0x00000948</Address>\n"
                                   "    <Length>8</Length>\n"
                                   "    <AccessMode>RO</AccessMode>\n"
                                   "    <pPort>Device</pPort>\n"
                                   "    <Cachable>NoCache</Cachable>\n"
                                   "    <Sign>Unsigned</Sign>\n"
                                   "    <Endianess>BigEndian</Endianess>\n"
                                   "    <Unit>ns</Unit>\n"
                                   "  </IntReg>\n");
}

void WriteImageFormatControl(Writer& xml)
{
    xml.Category("ImageFormatControl");
    xml.Integer("WidthMax", feature::kWidthMax, {}, ReadOnly("Expert"));
    xml.Integer("HeightMax", feature::kHeightMax, {}, ReadOnly("Expert"));
    // Size and offset limit each other. The limits stand on the other's register, not on the other feature, which would
    // refer back to them.
    xml.Difference("WidthLimit", "WidthMaxReg", "OffsetXReg");
    xml.Difference("HeightLimit", "HeightMaxReg", "OffsetYReg");
    xml.Difference("OffsetXLimit", "WidthMaxReg", "WidthReg");
    xml.Difference("OffsetYLimit", "HeightMaxReg", "HeightReg");
    xml.Integer("Width", feature::kWidth, {"1", "WidthLimit"}, LockedWhileStreaming());
    xml.Integer("Height", feature::kHeight, {"1", "HeightLimit"}, LockedWhileStreaming());
    xml.Integer("OffsetX", feature::kOffsetX, {"0", "OffsetXLimit"}, LockedWhileStreaming());
    xml.Integer("OffsetY", feature::kOffsetY, {"0", "OffsetYLimit"}, LockedWhileStreaming());
    std::vector<std::pair<std::string, std::uint32_t>> formats;
    formats.reserve(std::size(kPixelFormats));
    for (const PixelFormat& format : kPixelFormats)
    {
        formats.emplace_back(format.name, format.code);
    }
    xml.Enumeration("PixelFormat", feature::kPixelFormat, formats, LockedWhileStreaming());
    xml.Enumeration("TestPattern", feature::kTestPattern,
                    {{"MovingRamp", 0}, {"ColorBar", 1}, {"Noise", 2}, {"Scene", 3}}, LockedWhileStreaming());
}

void WriteAcquisitionControl(Writer& xml)
{
    xml.Category("AcquisitionControl");
    xml.Enumeration("AcquisitionMode", feature::kAcquisitionMode,
                    {{"Continuous", 0}, {"SingleFrame", 1}, {"MultiFrame", 2}}, LockedWhileStreaming());
    xml.Command("AcquisitionStart", feature::kAcquisitionStart, 1, {});
    xml.Command("AcquisitionStop", feature::kAcquisitionStop, 1, {});
    xml.Integer("AcquisitionFrameCount", feature::kAcquisitionFrameCount, {"1", "65535"}, {});
    Writer::Traits rate;
    rate.unit = "Hz";
    xml.Float("AcquisitionFrameRate", feature::kAcquisitionFrameRate, "0", "100000", rate);
    Writer::Traits time;
    time.unit = "us";
    xml.Float("ExposureTime", feature::kExposureTime, "1", "10000000", time);
    xml.Enumeration("TriggerMode", feature::kTriggerMode, {{"Off", 0}, {"On", 1}}, {});
    xml.Enumeration("TriggerSource", feature::kTriggerSource, {{"Software", 0}}, {});
    xml.Command("TriggerSoftware", feature::kTriggerSoftware, 1, {});
    xml.Category("AnalogControl");
    Writer::Traits gain;
    gain.unit = "dB";
    xml.Float("Gain", feature::kGain, "0", "48", gain);
}

void WriteOtherControls(Writer& xml)
{
    xml.Category("EventControl");
    std::vector<std::pair<std::string, std::uint32_t>> events;
    for (std::uint32_t i = 0; i < kEvents.size(); ++i)
    {
        events.emplace_back(kEvents[i].name, i);
    }
    xml.Selects("EventSelector", {"EventNotification"});
    xml.Enumeration("EventSelector", feature::kEventSelector, events, {});
    xml.SelectedEnumeration("EventNotification", feature::kEventNotification, "EventSelector", {{"Off", 0}, {"On", 1}});
    xml.Category("UserSetControl");
    xml.Selects("UserSetSelector", {"UserSetLoad", "UserSetSave"});
    xml.Enumeration("UserSetSelector", feature::kUserSetSelector, {{"Default", 0}, {"UserSet1", 1}}, {});
    xml.Command("UserSetLoad", feature::kUserSetLoad, 1, {});
    xml.Command("UserSetSave", feature::kUserSetSave, 1, {});
    xml.Category("TestControl");
    Writer::Traits pending;
    pending.visibility = "Guru";
    pending.unit = "ms";
    xml.Integer("TestPendingAck", feature::kTestPendingAck, {"0", "60000"}, pending);
    xml.Command("TestEventGenerate", feature::kTestEventGenerate, 1, pending);
}

void WriteTransportLayerControl(Writer& xml)
{
    xml.Category("TransportLayerControl");
    Writer::Traits payload = ReadOnly("Expert");
    payload.unit = "B";
    payload.volatileValue = true;
    xml.Integer("PayloadSize", feature::kPayloadSize, {}, payload);
    xml.Raw("TLParamsLocked", "  <Integer Name=\"TLParamsLocked\" NameSpace=\"Standard\">\n"
                              "    <Visibility>Invisible</Visibility>\n"
                              "    <Value>0</Value>\n"
                              "    <Min>0</Min>\n"
                              "    <Max>1</Max>\n"
                              "  </Integer>\n");
    Writer::Traits guru;
    guru.visibility = "Guru";
    guru.unit = "ms";
    xml.Integer("GevHeartbeatTimeout", bootstrap::kHeartbeatTimeout, {"500", "4294967295"}, guru);
    xml.Raw("GevSCPSPacketSize", "  <Integer Name=\"GevSCPSPacketSize\" NameSpace=\"Standard\">\n"
                                 "    <Visibility>Expert</Visibility>\n"
                                 "    <pIsLocked>TLParamsLocked</pIsLocked>\n"
                                 "    <pValue>GevSCPSPacketSizeReg</pValue>\n"
                                 "    <Min>576</Min>\n"
                                 "    <Max>9000</Max>\n"
                                 "    <Inc>4</Inc>\n"
                                 "    <Unit>B</Unit>\n"
                                 "  </Integer>\n"
                                 "  <MaskedIntReg Name=\"GevSCPSPacketSizeReg\" NameSpace=\"Custom\">\n"
                                 "    <Address>0x00000D04</Address>\n"
                                 "    <Length>4</Length>\n"
                                 "    <AccessMode>RW</AccessMode>\n"
                                 "    <pPort>Device</pPort>\n"
                                 "    <Cachable>NoCache</Cachable>\n"
                                 "    <LSB>31</LSB>\n"
                                 "    <MSB>16</MSB>\n"
                                 "    <Sign>Unsigned</Sign>\n"
                                 "    <Endianess>BigEndian</Endianess>\n"
                                 "  </MaskedIntReg>\n");
}

struct ZipErrorGuard
{
    ZipErrorGuard() { zip_error_init(&error); }
    ~ZipErrorGuard() { zip_error_fini(&error); }
    zip_error_t error;
};

[[noreturn]] void ThrowZip()
{
    throw std::runtime_error("the register description cannot be zipped");
}

} // namespace

std::string MakeGenicamXml(const CameraOptions& options)
{
    Writer xml;
    WriteDeviceControl(xml);
    WriteImageFormatControl(xml);
    WriteAcquisitionControl(xml);
    WriteOtherControls(xml);
    WriteTransportLayerControl(xml);
    return xml.Document(options.vendor, options.model);
}

std::vector<std::uint8_t> ZipOneFile(const std::string& name, const std::string& content)
{
    ZipErrorGuard guard;
    zip_source_t* archive = zip_source_buffer_create(nullptr, 0, 0, &guard.error);
    if (archive == nullptr)
    {
        ThrowZip();
    }
    const std::unique_ptr<zip_source_t, decltype(&zip_source_free)> keep(archive, &zip_source_free);
    zip_t* zip = zip_open_from_source(archive, ZIP_TRUNCATE, &guard.error);
    if (zip == nullptr)
    {
        ThrowZip();
    }
    // The open archive owns one reference of its own from here on.
    zip_source_keep(archive);
    zip_source_t* file = zip_source_buffer(zip, content.data(), content.size(), 0);
    if (file == nullptr || zip_file_add(zip, name.c_str(), file, ZIP_FL_ENC_UTF_8) < 0 || zip_close(zip) != 0)
    {
        zip_discard(zip);
        ThrowZip();
    }
    if (zip_source_open(archive) != 0)
    {
        ThrowZip();
    }
    zip_source_seek(archive, 0, SEEK_END);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(zip_source_tell(archive)));
    zip_source_seek(archive, 0, SEEK_SET);
    const auto got = zip_source_read(archive, bytes.data(), bytes.size());
    zip_source_close(archive);
    if (got != static_cast<zip_int64_t>(bytes.size()))
    {
        ThrowZip();
    }
    return bytes;
}

} // namespace nq::camera
