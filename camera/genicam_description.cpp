// SPDX-License-Identifier: Apache-2.0
// The camera's register description for GenICam.
#include "genicam_description.h"

#include "feature_registers.h"
#include "feature_table.h"
#include "genicam_writer.h"
#include "message_channel.h"

#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <zip.h>

namespace nq::camera
{

namespace
{

/// What locks the size of the pictures: a host that has allocated its buffers says so here.
constexpr const char* kParamsLocked = "  <Integer Name=\"TLParamsLocked\" NameSpace=\"Standard\">\n"
                                      "    <ToolTip>Set by the host while its buffers fit the size</ToolTip>\n"
                                      "    <Description>Set by the host while its buffers fit the size.</Description>\n"
                                      "    <DisplayName>TL Params Locked</DisplayName>\n"
                                      "    <Visibility>Invisible</Visibility>\n"
                                      "    <Value>0</Value>\n"
                                      "    <Min>0</Min>\n"
                                      "    <Max>1</Max>\n"
                                      "  </Integer>\n";
constexpr const char* kStreamingLock = "  <IntSwissKnife Name=\"StreamingLock\" NameSpace=\"Custom\">\n"
                                       "    <Visibility>Invisible</Visibility>\n"
                                       "    <pVariable Name=\"HOST\">TLParamsLocked</pVariable>\n"
                                       "    <pVariable Name=\"CAMERA\">StreamingReg</pVariable>\n"
                                       "    <Formula>(HOST + CAMERA) &gt; 0</Formula>\n"
                                       "  </IntSwissKnife>\n";

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
    GenicamWriter xml;
    for (const FeatureCategory& category : FeatureTable())
    {
        xml.Category(category.name, category.tip);
        for (const Feature& feature : category.features)
        {
            xml.Add(feature);
        }
    }
    xml.Raw("TLParamsLocked", kParamsLocked);
    xml.Helpers(kStreamingLock);
    for (const EventInfo& event : kEvents)
    {
        xml.EventPortNode(event.id);
    }
    xml.HelperRegister("StreamingReg", feature::kStreaming);
    xml.HelperRegister("AcquiringReg", feature::kAcquiring);
    xml.HelperRegister("WidthStepReg", feature::kWidthStep);
    return xml.Document(options.vendor, options.model);
}

std::string DescriptionName(const std::string& xml)
{
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "NQVirtualCamera_%08X", static_cast<unsigned>(Digest(xml, 0)));
    return name.data();
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
