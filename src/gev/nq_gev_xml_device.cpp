// SPDX-License-Identifier: Apache-2.0
// The register description of the device module's port.
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_device_registers.h"
#include "gev/nq_gev_xml_writer.h"

namespace
{

constexpr std::string_view kPort = "DevicePort";
constexpr std::string_view kEventPort = "RemoteDeviceConnectionStatePort";

void AddSubCategory(NQGevXmlWriter& xml, std::string_view name, std::string_view nameSpace, std::string_view text,
                    std::string_view displayName, std::string_view visibility,
                    const std::vector<NQGevXmlMember>& members)
{
    xml.Add(NQGevXmlCategory{.name = name,
                             .nameSpace = nameSpace,
                             .toolTip = text,
                             .displayName = displayName,
                             .visibility = visibility,
                             .members = members});
}

/// Of what the library's own text offers beyond the standard's: a file that nothing takes and an event that never
/// comes.
void AddStatedCategories(NQGevXmlWriter& xml)
{
    AddSubCategory(xml, "XMLFileInjection", "Custom",
                   "Category that contains the features for replacing the XML file of the device.",
                   "XML File Injection", "Beginner", {"XMLFile", "UpdateXML"});
    AddSubCategory(xml, "EventControl", "Standard",
                   "Category that contains all Event Control features of the Device module.", "Event Control", "Expert",
                   {"EventSelector", "EventNotification", "EventRemoteDeviceConnectionStateData"});
    AddSubCategory(xml, "EventRemoteDeviceConnectionStateData", "Custom",
                   "Category that contains all data of the Remote Device Connection State event.",
                   "Remote Device Connection Status Data", "Expert",
                   {"EventRemoteDeviceConnectionStateID", "EventRemoteDeviceConnectionStateState"});
}

void AddCategories(NQGevXmlWriter& xml)
{
    xml.BeginGroup("RootCategory");
    xml.Add(NQGevXmlCategory{.name = "Root",
                             .nameSpace = "Standard",
                             .visibility = "Beginner",
                             .members = {"DeviceInformation",
                                         "StreamEnumeration",
                                         {"XMLFileInjection", NQGevXmlMember::StatedOnly},
                                         {"EventControl", NQGevXmlMember::StatedOnly}}});
    xml.EndGroup();
    xml.BeginGroup("SubCategories", false);
    AddSubCategory(xml, "DeviceInformation", "Standard",
                   "Category that contains all Device Information features of the Device module.", "Device Information",
                   "Beginner",
                   {"DeviceID",
                    "DeviceVendorName",
                    "DeviceModelName",
                    "DeviceType",
                    "DeviceAccessStatus",
                    "GevDeviceMACAddress",
                    "GevDeviceIPAddress",
                    "GevDeviceSubnetMask",
                    "GevDeviceGateway",
                    {"DeviceEndianessMechanism", NQGevXmlMember::StandardOnly}});
    AddSubCategory(xml, "StreamEnumeration", "Standard",
                   "Category that contains all Stream Enumeration features of the Device module.", "Stream Enumeration",
                   "Beginner", {"StreamSelector", "StreamID"});
    if (!xml.IsStandard())
    {
        AddStatedCategories(xml);
    }
    xml.EndGroup();
}

void AddText(NQGevXmlWriter& xml, std::string_view name, std::string_view text, std::string_view displayName,
             std::string_view visibility, std::string_view reg)
{
    xml.Add(NQGevXmlFeature{.type = "String",
                            .name = name,
                            .nameSpace = "Standard",
                            .toolTip = text,
                            .displayName = displayName,
                            .visibility = visibility,
                            .reg = reg});
}

void AddAddress(NQGevXmlWriter& xml, std::string_view name, std::string_view text, std::string_view displayName,
                std::string_view reg, std::string_view representation)
{
    xml.Add(NQGevXmlFeature{.type = "Integer",
                            .name = name,
                            .nameSpace = "Standard",
                            .toolTip = text,
                            .displayName = displayName,
                            .visibility = "Expert",
                            .reg = reg,
                            .representation = representation});
}

void AddEndianessMechanism(NQGevXmlWriter& xml)
{
    xml.Add(NQGevXmlFeature{
        .type = "Enumeration",
        .name = "DeviceEndianessMechanism", // spelt so by the naming convention
        .nameSpace = "Standard",
        .toolTip = "Identifies the endianness handling mode for this device.",
        .displayName = "Device Endianess Mechanism",
        .visibility = "Expert",
        .entries = {{"Legacy", "The endianness of the device is handled as GenICam schema 1.0 says.", "Legacy", "0"},
                    {"Standard", "The endianness of the device is handled as GenICam schema 1.1 says.", "Standard",
                     "1"}},
        .reg = "DeviceEndianessMechanism_Reg"});
}

void AddDeviceInformation(NQGevXmlWriter& xml)
{
    xml.BeginGroup("DeviceInformation");
    AddText(xml, "DeviceID", "Interface wide unique identifier of this device.", "Device ID", "Expert", "DeviceID_Reg");
    AddText(xml, "DeviceVendorName", "Name of the vendor of this device.", "Device Vendor Name", "Beginner",
            "DeviceVendorName_Reg");
    AddText(xml, "DeviceModelName", "Name of the model of this device.", "Device Model Name", "Beginner",
            "DeviceModelName_Reg");
    xml.Add(NQGevXmlFeature{.type = "Enumeration",
                            .name = "DeviceType",
                            .nameSpace = "Standard",
                            .toolTip = "Identifies the transport layer technology of this device.",
                            .displayName = "Device Type",
                            .visibility = "Expert",
                            .imposedAccessMode = "RO",
                            .entries = NQGevXmlTransportEntries(),
                            .fixed = "0"});
    xml.Add(NQGevXmlFeature{.type = "Enumeration",
                            .name = "DeviceAccessStatus",
                            .nameSpace = "Standard",
                            .toolTip = "Access the GenTL Producer has to this device.",
                            .displayName = "Device Access Status",
                            .visibility = "Expert",
                            .entries = NQGevXmlAccessStatusEntries(),
                            .reg = "DeviceAccessStatus_Reg"});
    AddAddress(xml, "GevDeviceMACAddress", "48-bit MAC address of this device.", "Gev Device MAC Address",
               "GevDeviceMACAddress_Reg", "MACAddress");
    AddAddress(xml, "GevDeviceIPAddress", "Current IP address of this device.", "Gev Device IP Address",
               "GevDeviceIPAddress_Reg", "IPV4Address");
    AddAddress(xml, "GevDeviceSubnetMask", "Current subnet mask of this device.", "Gev Device Subnet Mask",
               "GevDeviceSubnetMask_Reg", "IPV4Address");
    AddAddress(xml, "GevDeviceGateway", "Current gateway of this device.", "Gev Device Gateway", "GevDeviceGateway_Reg",
               "IPV4Address");
    if (xml.IsStandard())
    {
        AddEndianessMechanism(xml);
    }
    xml.EndGroup();
}

void AddStreamEnumeration(NQGevXmlWriter& xml)
{
    xml.BeginGroup("StreamEnumeration");
    xml.Add(NQGevXmlFeature{.type = "Integer",
                            .name = "StreamSelector",
                            .nameSpace = "Standard",
                            .toolTip = "Selector for the different streams of this device.",
                            .displayName = "Stream Selector",
                            .visibility = "Beginner",
                            .available = "StreamListNonEmpty_Form",
                            .reg = "StreamSelector_Reg",
                            .min = "0",
                            .maxNode = "StreamListMax_Form",
                            .selected = {"StreamID"}});
    xml.Add(NQGevXmlFeature{.type = "String",
                            .name = "StreamID",
                            .nameSpace = "Standard",
                            .toolTip = "Device wide unique identifier of the selected stream.",
                            .displayName = "Stream ID",
                            .visibility = "Beginner",
                            .available = "StreamListNonEmpty_Form",
                            .reg = "StreamID_Reg"});
    xml.EndGroup();
}

void AddXmlFileInjection(NQGevXmlWriter& xml)
{
    xml.BeginGroup("XMLFileInjection");
    xml.Add(NQGevXmlFeature{.type = "String",
                            .name = "XMLFile",
                            .nameSpace = "Custom",
                            .toolTip = "XML File to upload.",
                            .displayName = "XML File",
                            .visibility = "Guru",
                            .reg = "UpdateXMLFile_Reg"});
    xml.Add(NQGevXmlFeature{.type = "Command",
                            .name = "UpdateXML",
                            .nameSpace = "Custom",
                            .toolTip = "Update XML",
                            .displayName = "Update XML",
                            .visibility = "Expert",
                            .reg = "UpdateXML_Reg",
                            .commandValue = "1"});
    xml.EndGroup();
}

void AddEventControl(NQGevXmlWriter& xml)
{
    xml.BeginGroup("EventControl");
    xml.Add(NQGevXmlFeature{.type = "Enumeration",
                            .name = "EventSelector",
                            .nameSpace = "Standard",
                            .toolTip = "Selects which event to signal to the consumer.",
                            .displayName = "Event Selector",
                            .visibility = "Expert",
                            .imposedAccessMode = "RW",
                            .entries = {{"RemoteDeviceConnectionState", "The connection to the remote device changed.",
                                         "Remote Device Connection State", "0"}},
                            .fixed = "0",
                            .selected = {"EventNotification"}});
    xml.Add(NQGevXmlFeature{
        .type = "Enumeration",
        .name = "EventNotification",
        .nameSpace = "Standard",
        .toolTip = "Activates or deactivates the notification of the selected event.",
        .displayName = "Event Notification",
        .visibility = "Beginner",
        .entries = {{"Off", "The event is not signalled.", "", "0"}, {"On", "The event is signalled.", "", "1"}},
        .reg = "EventNotification_Reg"});
    xml.Add(
        NQGevXmlFeature{.type = "Integer",
                        .name = "EventRemoteDeviceConnectionStateID",
                        .nameSpace = "Custom",
                        .toolTip = "Returns the unique identifier of the Remote Device Connection State event type.",
                        .visibility = "Expert",
                        .imposedAccessMode = "RO",
                        .reg = "EventRemoteDeviceConnectionStateID_Reg",
                        .representation = "HexNumber"});
    xml.Add(NQGevXmlFeature{.type = "Integer",
                            .name = "EventRemoteDeviceConnectionStateState",
                            .nameSpace = "Custom",
                            .toolTip = "Returns the current state of Connected Device.",
                            .visibility = "Expert",
                            .imposedAccessMode = "RO",
                            .reg = "EventRemoteDeviceConnectionStateState_Reg"});
    xml.EndGroup();
}

void AddDeviceRegisters(NQGevXmlWriter& xml)
{
    xml.BeginGroup("DeviceInformation Registers");
    xml.AddString({kDeviceRegisters["DeviceID_Reg"], kPort});
    xml.AddString({kDeviceRegisters["DeviceVendorName_Reg"], kPort});
    xml.AddString({kDeviceRegisters["DeviceModelName_Reg"], kPort});
    xml.AddInteger({kDeviceRegisters["DeviceAccessStatus_Reg"], kPort});
    xml.AddInteger({kDeviceRegisters["GevDeviceMACAddress_Reg"], kPort});
    xml.AddInteger({kDeviceRegisters["GevDeviceIPAddress_Reg"], kPort});
    xml.AddInteger({kDeviceRegisters["GevDeviceSubnetMask_Reg"], kPort});
    xml.AddInteger({kDeviceRegisters["GevDeviceGateway_Reg"], kPort});
    if (xml.IsStandard())
    {
        xml.AddInteger({kDeviceRegisters["DeviceEndianessMechanism_Reg"], kPort});
    }
    xml.EndGroup();
    xml.BeginGroup("StreamEnumeration Registers");
    xml.AddInteger({.row = kDeviceRegisters["StreamSelector_Reg"], .port = kPort, .cachable = "NoCache"});
    xml.AddString({.row = kDeviceRegisters["StreamID_Reg"], .port = kPort, .invalidator = "StreamSelector_Reg"});
    xml.AddInteger({.row = kDeviceRegisters["NrStreams_Reg"], .port = kPort, .cachable = "NoCache"});
    xml.EndGroup();
}

void AddUpdateRegisters(NQGevXmlWriter& xml)
{
    xml.BeginGroup("UpdateXML Registers");
    xml.AddString({kDeviceRegisters["UpdateXMLFile_Reg"], kPort});
    xml.DisableString({.row = kDeviceRegisters["UpdateXMLStatus_Reg"], .port = kPort, .invalidator = "UpdateXML_Reg"});
    xml.AddInteger({.row = kDeviceRegisters["UpdateXML_Reg"], .port = kPort, .cachable = "NoCache"});
    xml.EndGroup();
}

void AddEventRegisters(NQGevXmlWriter& xml)
{
    xml.BeginGroup("Event Control Registers");
    xml.AddInteger({.row = kDeviceRegisters["EventNotification_Reg"], .port = kPort, .cachable = "NoCache"});
    xml.AddInteger({kDeviceRegisters["EventRemoteDeviceConnectionStateID_Reg"], kEventPort, "Custom", "Invisible"});
    xml.AddInteger({kDeviceRegisters["EventRemoteDeviceConnectionStateState_Reg"], kEventPort, "Custom", "Invisible"});
    xml.EndGroup();
}

std::string Create(const NQGevXmlEdition& edition)
{
    NQGevXmlWriter xml("NQGenTLGev", "Device RegisterMap", edition);
    AddCategories(xml);
    AddDeviceInformation(xml);
    AddStreamEnumeration(xml);
    if (!xml.IsStandard())
    {
        AddXmlFileInjection(xml);
        AddEventControl(xml);
    }
    AddDeviceRegisters(xml);
    if (!xml.IsStandard())
    {
        AddUpdateRegisters(xml);
        AddEventRegisters(xml);
    }
    xml.BeginGroup("StreamEnumeration Formulas");
    xml.Add(NQGevXmlFormula{"StreamListNonEmpty_Form", "", "NRSTRMS", "NrStreams_Reg", "NRSTRMS > 0"});
    xml.Add(NQGevXmlFormula{"StreamListMax_Form", "", "NRSTRMS", "NrStreams_Reg", "NRSTRMS - 1"});
    xml.EndGroup();
    const NQGevXmlPort port{.name = kPort, .displayName = "Device Port", .imposedAccessMode = "RW"};
    return xml.IsStandard() ? xml.Finish({port}) : xml.Finish({{.name = kEventPort, .eventId = "77777701"}, port});
}

} // namespace

std::string CreateXmlFileDevice()
{
    return Create({});
}

std::string CreateStandardXmlFileDevice()
{
    return Create({.text = NQGevText::Standard,
                   .productGuid = "A4270CCA-A433-459B-A701-6856FD71A5C9",
                   .versionGuid = "B34B429F-127B-4206-9DF0-4686A2111FF0"});
}
