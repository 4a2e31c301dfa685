// SPDX-License-Identifier: Apache-2.0
// The register description of the interface module's port.
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_interface_registers.h"
#include "gev/nq_gev_xml_writer.h"

namespace
{

constexpr std::string_view kPort = "InterfacePort";
constexpr std::string_view kDeviceListed = "DeviceListNonEmpty_Form";

void AddCategories(NQGevXmlWriter& xml)
{
    xml.BeginGroup("RootCategory");
    xml.Add(NQGevXmlCategory{.name = "Root",
                             .nameSpace = "Standard",
                             .visibility = "Beginner",
                             .members = {"InterfaceInformation", "DeviceEnumeration"}});
    xml.EndGroup();
    xml.BeginGroup("SubCategories", false);
    xml.Add(NQGevXmlCategory{.name = "InterfaceInformation",
                             .nameSpace = "Standard",
                             .toolTip =
                                 "Category that contains all Interface Information features of the Interface module.",
                             .displayName = "Interface Information",
                             .visibility = "Expert",
                             .members = {"InterfaceID",
                                         {"InterfaceDisplayName", NQGevXmlMember::Disabled},
                                         "InterfaceType",
                                         "InterfaceTLVersionMajor",
                                         "InterfaceTLVersionMinor",
                                         "GevInterfaceGatewaySelector",
                                         "GevInterfaceGateway",
                                         "GevInterfaceMACAddress",
                                         "GevInterfaceSubnetSelector",
                                         "GevInterfaceSubnetIPAddress",
                                         "GevInterfaceSubnetMask"}});
    xml.Add(NQGevXmlCategory{
        .name = "DeviceEnumeration",
        .nameSpace = "Standard",
        .toolTip = "Category that contains all Device Enumeration features of the Interface module.",
        .displayName = "Device Enumeration",
        .visibility = "Expert",
        .members = {"DeviceUpdateList", "DeviceSelector", "DeviceID", "DeviceVendorName", "DeviceModelName",
                    "DeviceAccessStatus", "DeviceTLVersionMajor", "DeviceTLVersionMinor", "GevDeviceIPAddress",
                    "GevDeviceSubnetMask", "GevDeviceMACAddress"}});
    xml.EndGroup();
}

/// A version number of the interface's transport layer.
void AddVersion(NQGevXmlWriter& xml, std::string_view name, std::string_view text, std::string_view displayName,
                std::string_view number)
{
    xml.Add(NQGevXmlFeature{.type = "Integer",
                            .name = name,
                            .nameSpace = "Standard",
                            .toolTip = text,
                            .displayName = displayName,
                            .visibility = "Expert",
                            .imposedAccessMode = "RO",
                            .fixed = number});
}

/// One of the selected device's: from a register in the standard's text, fixed in the library's own.
void AddDeviceVersion(NQGevXmlWriter& xml, std::string_view name, std::string_view text, std::string_view displayName,
                      std::string_view reg, std::string_view number)
{
    xml.Add(NQGevXmlFeature{.type = "Integer",
                            .name = name,
                            .nameSpace = "Standard",
                            .toolTip = text,
                            .displayName = displayName,
                            .visibility = "Expert",
                            .imposedAccessMode = "RO",
                            .available = xml.IsStandard() ? kDeviceListed : "",
                            .reg = xml.IsStandard() ? reg : "",
                            .fixed = xml.IsStandard() ? "" : number,
                            .openingComment = "Mandatory element"});
}

void AddAddress(NQGevXmlWriter& xml, std::string_view name, std::string_view text, std::string_view displayName,
                std::string_view available, std::string_view reg, std::string_view representation = "IPV4Address")
{
    xml.Add(NQGevXmlFeature{.type = "Integer",
                            .name = name,
                            .nameSpace = "Standard",
                            .toolTip = text,
                            .displayName = displayName,
                            .visibility = "Expert",
                            .available = available,
                            .reg = reg,
                            .representation = representation});
}

void AddSelector(NQGevXmlWriter& xml, std::string_view name, std::string_view text, std::string_view displayName,
                 std::string_view available, std::string_view reg, std::string_view maxNode,
                 const std::vector<std::string_view>& selected)
{
    xml.Add(NQGevXmlFeature{.type = "Integer",
                            .name = name,
                            .nameSpace = "Standard",
                            .toolTip = text,
                            .displayName = displayName,
                            .visibility = "Expert",
                            .available = available,
                            .reg = reg,
                            .min = "0",
                            .maxNode = maxNode,
                            .selected = selected});
}

void AddText(NQGevXmlWriter& xml, std::string_view name, std::string_view text, std::string_view displayName,
             std::string_view available, std::string_view reg)
{
    xml.Add(NQGevXmlFeature{.type = "String",
                            .name = name,
                            .nameSpace = "Standard",
                            .toolTip = text,
                            .displayName = displayName,
                            .visibility = "Expert",
                            .available = available,
                            .reg = reg});
}

void AddInterfaceInformation(NQGevXmlWriter& xml)
{
    xml.BeginGroup("InterfaceInformation");
    AddText(xml, "InterfaceID", "GenTL Producer wide unique identifier of the interface.", "Interface ID", "",
            "InterfaceID_Reg");
    xml.Add(NQGevXmlFeature{.type = "Enumeration",
                            .name = "InterfaceType",
                            .nameSpace = "Standard",
                            .toolTip = "Identifies the transport layer technology of the interface.",
                            // Deliberate(TransportIsADeviceType): the type of a transport is shown as that of a device,
                            // by system, interface and device alike: one name for one list of entries.
                            .displayName = "Device Type",
                            .visibility = "Expert",
                            .imposedAccessMode = "RO",
                            .entries = NQGevXmlTransportEntries(),
                            .fixed = "0"});
    AddVersion(xml, "InterfaceTLVersionMajor", "Major version number of the transport layer of this interface.",
               "Interface TL Version Major", xml.IsStandard() ? "2" : "1");
    AddVersion(xml, "InterfaceTLVersionMinor", "Minor version number of the transport layer of this interface.",
               "Interface TL Version Minor", xml.IsStandard() ? "0" : "3");
    AddSelector(xml, "GevInterfaceGatewaySelector", "Selector for the different gateway entries of this interface.",
                "Gev Interface Gateway Selector", "GatewayListNotEmpty_Form", "GevInterfaceGatewaySelector_Reg",
                "GevInterfaceGatewaySelectorMax_Form", {"GevInterfaceGateway"});
    AddAddress(xml, "GevInterfaceGateway", "IP address of the selected gateway entry of this interface.",
               "Gev Interface Gateway", "GatewayListNotEmpty_Form", "GevInterfaceGateway_Reg");
    AddAddress(xml, "GevInterfaceMACAddress", "48-bit MAC address of this interface.", "Gev Interface MAC Address", "",
               "GevInterfaceMACAddress_Reg", "MACAddress");
    AddSelector(xml, "GevInterfaceSubnetSelector", "Selector for the subnets of this interface.",
                "Gev Interface Subnet Selector", "", "GevInterfaceSubnetSelector_Reg",
                "GevInterfaceSubnetSelectorMax_Form", {"GevInterfaceSubnetIPAddress", "GevInterfaceSubnetMask"});
    AddAddress(xml, "GevInterfaceSubnetIPAddress", "IP address of the selected subnet of this interface.",
               "Gev Interface Subnet IP Address", "", "GevInterfaceSubnetIPAddress_Reg");
    AddAddress(xml, "GevInterfaceSubnetMask", "Subnet mask of the selected subnet of this interface.",
               "Gev Interface Subnet Mask", "", "GevInterfaceSubnetMask_Reg");
    xml.EndGroup();
}

void AddDeviceEnumeration(NQGevXmlWriter& xml)
{
    xml.BeginGroup("DeviceEnumeration");
    xml.Add(NQGevXmlFeature{.type = "Command",
                            .name = "DeviceUpdateList",
                            .nameSpace = "Standard",
                            .toolTip = "Updates the internal device list.",
                            .displayName = "Device Update List",
                            .visibility = "Expert",
                            .reg = "DeviceUpdateList_Reg",
                            .commandValue = "1"});
    AddSelector(xml, "DeviceSelector", "Selector for the different devices on this interface.", "Device Selector",
                kDeviceListed, "DeviceSelector_Reg", "DeviceListMax_Form",
                {"DeviceID", "DeviceVendorName", "DeviceModelName", "DeviceAccessStatus", "DeviceTLVersionMajor",
                 "DeviceTLVersionMinor", "GevDeviceIPAddress", "GevDeviceSubnetMask", "GevDeviceMACAddress"});
    AddText(xml, "DeviceID", "Interface wide unique identifier of the selected device.", "Device ID", kDeviceListed,
            "DeviceID_Reg");
    AddText(xml, "DeviceVendorName", "Name of the vendor of the selected device.", "Device Vendor Name", kDeviceListed,
            "DeviceVendorName_Reg");
    AddText(xml, "DeviceModelName", "Name of the model of the selected device.", "Device Model Name", kDeviceListed,
            "DeviceModelName_Reg");
    xml.Add(NQGevXmlFeature{.type = "Enumeration",
                            .name = "DeviceAccessStatus",
                            .nameSpace = "Standard",
                            .toolTip = "Access status of the selected device at the moment of its last update.",
                            .displayName = "Device Access Status",
                            .visibility = "Expert",
                            .available = kDeviceListed,
                            .entries = NQGevXmlAccessStatusEntries(),
                            .reg = "DeviceAccessStatus_Reg"});
    AddDeviceVersion(xml, "DeviceTLVersionMajor", "Major version number of the transport layer of the selected device.",
                     "Device TL Version Major", "DeviceTLVersionMajor_Reg", "1");
    AddDeviceVersion(xml, "DeviceTLVersionMinor", "Minor version number of the transport layer of the selected device.",
                     "Device TL Version Minor", "DeviceTLVersionMinor_Reg", "3");
    AddAddress(xml, "GevDeviceIPAddress", "Current IP address of the selected device.", "Gev Device IP Address",
               kDeviceListed, "GevDeviceIPAddress_Reg");
    AddAddress(xml, "GevDeviceSubnetMask", "Current subnet mask of the selected device.", "Gev Device Subnet Mask",
               kDeviceListed, "GevDeviceSubnetMask_Reg");
    AddAddress(xml, "GevDeviceMACAddress", "48-bit MAC address of the selected device.", "Gev Device MAC Address",
               kDeviceListed, "GevDeviceMACAddress_Reg", "MACAddress");
    xml.EndGroup();
}

void AddNumber(NQGevXmlWriter& xml, const NQGevRegister& row, std::string_view invalidator = "",
               std::string_view cachable = "")
{
    xml.AddInteger({.row = row, .port = kPort, .cachable = cachable, .invalidator = invalidator});
}

void AddString(NQGevXmlWriter& xml, const NQGevRegister& row, std::string_view invalidator = "")
{
    xml.AddString({.row = row, .port = kPort, .invalidator = invalidator});
}

void AddInterfaceRegisters(NQGevXmlWriter& xml)
{
    xml.BeginGroup("InterfaceInformation Registers");
    AddString(xml, kInterfaceRegisters["InterfaceID_Reg"]);
    AddNumber(xml, kInterfaceRegisters["GevInterfaceGatewaySelector_Reg"]);
    AddNumber(xml, kInterfaceRegisters["NrGateways_Reg"]);
    AddNumber(xml, kInterfaceRegisters["GevInterfaceGateway_Reg"], "GevInterfaceGatewaySelector_Reg");
    AddNumber(xml, kInterfaceRegisters["GevInterfaceMACAddress_Reg"]);
    AddNumber(xml, kInterfaceRegisters["GevInterfaceSubnetSelector_Reg"]);
    AddNumber(xml, kInterfaceRegisters["NrSubnets_Reg"]);
    AddNumber(xml, kInterfaceRegisters["GevInterfaceSubnetIPAddress_Reg"], "GevInterfaceSubnetSelector_Reg");
    // Deliberate(MaskInvalidatesItself): the mask names itself as its invalidator. There is only one subnet, so no
    // selection changes it.
    AddNumber(xml, kInterfaceRegisters["GevInterfaceSubnetMask_Reg"],
              xml.IsStandard() ? "GevInterfaceSubnetSelector_Reg" : "GevInterfaceSubnetMask_Reg");
    xml.EndGroup();
}

void AddDeviceRegisters(NQGevXmlWriter& xml)
{
    constexpr std::string_view kSelector = "DeviceSelector_Reg";
    constexpr std::string_view kUpdate = "DeviceUpdateList_Reg";
    xml.BeginGroup("DeviceEnumeration Registers");
    AddString(xml, kInterfaceRegisters["DeviceID_Reg"], kSelector);
    AddString(xml, kInterfaceRegisters["DeviceVendorName_Reg"], kSelector);
    AddString(xml, kInterfaceRegisters["DeviceModelName_Reg"], kSelector);
    AddNumber(xml, kInterfaceRegisters[kUpdate], "", "NoCache");
    AddNumber(xml, kInterfaceRegisters[kSelector], kUpdate, "NoCache");
    AddNumber(xml, kInterfaceRegisters["DeviceAccessStatus_Reg"], kSelector);
    AddNumber(xml, kInterfaceRegisters["NrDevices_Reg"], kUpdate, "NoCache");
    AddNumber(xml, kInterfaceRegisters["GevDeviceIPAddress_Reg"], kSelector);
    AddNumber(xml, kInterfaceRegisters["GevDeviceSubnetMask_Reg"], kSelector);
    AddNumber(xml, kInterfaceRegisters["GevDeviceMACAddress_Reg"], kSelector);
    if (xml.IsStandard())
    {
        AddNumber(xml, kInterfaceRegisters["DeviceTLVersionMajor_Reg"], kSelector);
        AddNumber(xml, kInterfaceRegisters["DeviceTLVersionMinor_Reg"], kSelector);
    }
    xml.EndGroup();
}

void AddFormulas(NQGevXmlWriter& xml)
{
    // Deliberate(FormulasOutsideGroups): these three stand outside any group: a node is found by its name, and no
    // category lists them.
    xml.Add(NQGevXmlFormula{"GevInterfaceGatewaySelectorMax_Form", "Custom", "NRGWYS", "NrGateways_Reg", "NRGWYS - 1"});
    xml.Add(NQGevXmlFormula{"GatewayListNotEmpty_Form", "Custom", "NRGWYS", "NrGateways_Reg", "NRGWYS > 0"});
    xml.Add(NQGevXmlFormula{"GevInterfaceSubnetSelectorMax_Form", "Custom", "NRSUBS", "NrSubnets_Reg", "NRSUBS - 1"});
    xml.BeginGroup("DeviceEnumeration Formulas");
    xml.Add(NQGevXmlFormula{"DeviceListNonEmpty_Form", "", "NRDEVS", "NrDevices_Reg", "NRDEVS > 0"});
    xml.Add(NQGevXmlFormula{"DeviceListMax_Form", "", "NRDEVS", "NrDevices_Reg", "NRDEVS - 1"});
    xml.EndGroup();
}

std::string Create(const NQGevXmlEdition& edition)
{
    NQGevXmlWriter xml("NQGenTLGev", "IF RegisterMap", edition);
    AddCategories(xml);
    AddInterfaceInformation(xml);
    AddDeviceEnumeration(xml);
    AddInterfaceRegisters(xml);
    AddDeviceRegisters(xml);
    AddFormulas(xml);
    return xml.Finish({{.name = kPort, .displayName = "Interface Port", .imposedAccessMode = "RW"}});
}

} // namespace

std::string CreateXmlFileInterface()
{
    return Create({});
}

std::string CreateStandardXmlFileInterface()
{
    return Create({.text = NQGevText::Standard,
                   .productGuid = "80A1615E-88C4-43B9-8372-2E47799B5CA7",
                   .versionGuid = "EACA7205-885A-40E6-8CF4-9BDFC16917FD"});
}
