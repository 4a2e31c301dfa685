// SPDX-License-Identifier: Apache-2.0
// A camera made of a socket whose features are those of a description that the test writes.
#pragma once

#include "support/gvcp_camera.h"
#include "support/network.h"

#include <sstream>
#include <string>

namespace nq::test
{

/// Stands at 10.77.0.2 behind the adapter host0 at 10.77.0.1, and says that it streams by RDMA. Its description lies at
/// 0x10000.
class DescribedCamera
{
  public:
    /// `nodes` stand in the description beside its port, which is called Device.
    explicit DescribedCamera(const std::string& nodes)
    {
        m_far.Connect("host0", "10.77.0.1/24", "cam0", "10.77.0.2/24");
        GvcpDiscovery identity;
        identity.ipAddress = 0x0A4D0002;
        identity.subnetMask = 0xFFFFFF00;
        identity.deviceVersion = "3.0.0";
        camera.SetDiscovery(identity);
        camera.SetRegister(0x0904, 1);
        camera.SetRegister(0x092C, 0x04000000);
        const std::string text =
            R"(<?xml version="1.0"?>
<RegisterDescription ModelName="Model" VendorName="Vendor" ToolTip="" StandardNameSpace="None" SchemaMajorVersion="1"
  SchemaMinorVersion="1" SchemaSubMinorVersion="0" MajorVersion="1" MinorVersion="0" SubMinorVersion="0"
  ProductGuid="1" VersionGuid="1" xmlns="http://www.genicam.org/GenApi/Version_1_1">
)" + nodes + R"(  <Port Name="Device"/>
</RegisterDescription>
)";
        std::ostringstream url;
        url << "Local:camera.xml;10000;" << std::hex << text.size();
        camera.SetMemory(0x0200, url.str());
        camera.SetMemory(0x10000, text);
        camera.AwaitPath("10.77.0.1");
    }

  private:
    const Host m_far;

  public:
    GvcpCamera camera{&m_far};
};

} // namespace nq::test
