// SPDX-License-Identifier: Apache-2.0
// The register description of the system module's port.
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_system_registers.h"
#include "gev/nq_gev_xml_writer.h"

namespace
{

constexpr std::string_view kPort = "TLPort";

void AddCategories(NQGevXmlWriter& xml)
{
    xml.BeginGroup("RootCategory");
    xml.Add(NQGevXmlCategory{
        .name = "Root",
        .nameSpace = "Standard",
        .visibility = "Beginner",
        .members = {"SystemInformation", "InterfaceEnumeration", {"EventControl", NQGevXmlMember::Disabled}},
        .openingComment = "Mandatory element"});
    xml.EndGroup();
    xml.BeginGroup("SubCategories", false);
    xml.Add(NQGevXmlCategory{.name = "SystemInformation",
                             .nameSpace = "Standard",
                             .toolTip = "Category that contains all System Information features of the System module.",
                             .displayName = "System Information",
                             .visibility = "Beginner",
                             .members = {"TLID", "TLVendorName", "TLModelName", "TLVersion", "TLPath", "TLType",
                                         "GenTLVersionMajor", "GenTLVersionMinor", "GenTLSFNCVersionMajor",
                                         "GenTLSFNCVersionMinor"}});
    xml.Add(
        NQGevXmlCategory{.name = "InterfaceEnumeration",
                         .nameSpace = "Standard",
                         .toolTip = "Category that contains all Interface Enumeration features of the System module.",
                         .displayName = "Interface Enumeration",
                         .visibility = "Beginner",
                         .members = {"InterfaceUpdateList",
                                     {"InterfaceUpdateTimeout", NQGevXmlMember::Disabled},
                                     "InterfaceSelector",
                                     "InterfaceID",
                                     "GevInterfaceMACAddress",
                                     "GevInterfaceDefaultIPAddress",
                                     "GevInterfaceDefaultSubnetMask",
                                     "GevInterfaceDefaultGateway"}});
    xml.Disable(NQGevXmlCategory{.name = "EventControl",
                                 .nameSpace = "Standard",
                                 .toolTip = "Category that contains all Event Control features of the System module.",
                                 .displayName = "Event Control",
                                 .visibility = "Expert",
                                 .members = {"EventSelector", "EventNotification", "EventInterfaceListChangedData"}},
                "TBD");
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

/// A version number: from a register, or fixed and read-only.
void AddVersion(NQGevXmlWriter& xml, std::string_view name, std::string_view text, std::string_view displayName,
                std::string_view reg, std::string_view fixed)
{
    xml.Add(NQGevXmlFeature{.type = "Integer",
                            .name = name,
                            .nameSpace = "Standard",
                            .toolTip = text,
                            .displayName = displayName,
                            .visibility = "Expert",
                            .imposedAccessMode = fixed.empty() ? "" : "RO",
                            .reg = reg,
                            .fixed = fixed});
}

void AddSystemInformation(NQGevXmlWriter& xml)
{
    xml.BeginGroup("SystemInformation");
    AddText(xml, "TLID", "Unique identifier of the GenTL Producer like a GUID.", "", "Expert", "TLID_Reg");
    AddText(xml, "TLVendorName", "Name of the GenTL Producer vendor.", "Manufacturer Name", "Beginner",
            "TLVendorName_Reg");
    AddText(xml, "TLModelName", "Name of the GenTL Producer to distinguish different kinds of them from one vendor.",
            "", "Beginner", "TLModelName_Reg");
    AddText(xml, "TLVersion", "Vendor specific version string of the GenTL Producer.", "TL Version", "Beginner",
            "TLVersion_Reg");
    AddText(xml, "TLPath", "Full path to the GenTL Producer driver including name and extension.", "TL Path", "Expert",
            "TLPath_Reg");
    xml.Add(NQGevXmlFeature{.type = "Enumeration",
                            .name = "TLType",
                            .nameSpace = "Standard",
                            .toolTip = "Identifies the transport layer technology of the GenTL Producer.",
                            // Deliberate(TransportIsADeviceType): the type of a transport is shown as that of a device,
                            // by system, interface and device alike: one name for one list of entries.
                            .displayName = "Device Type",
                            .visibility = "Expert",
                            .imposedAccessMode = "RO",
                            .entries = NQGevXmlTransportEntries(),
                            .fixed = "0"});
    AddVersion(xml, "GenTLVersionMajor", "Major version number of the GenTL specification the Producer implements.",
               "Gen TL Version Major", "GenTLVersionMajor_Reg", "");
    AddVersion(xml, "GenTLVersionMinor", "Minor version number of the GenTL specification the Producer implements.",
               "Gen TL Version Minor", "GenTLVersionMinor_Reg", "");
    AddVersion(xml, "GenTLSFNCVersionMajor",
               "Major version number of the GenTL Standard Features Naming Convention the Producer follows.",
               "GenTL SFNC Version Major", "", "1");
    AddVersion(xml, "GenTLSFNCVersionMinor",
               "Minor version number of the GenTL Standard Features Naming Convention the Producer follows.",
               "GenTL SFNC Version Minor", "", "1");
    xml.EndGroup();
}

void AddInterfaceSelection(NQGevXmlWriter& xml)
{
    // Deliberate(UpdateCommandReachesNoRegister): in the library's own text the command has a value of its own and
    // reaches no register. A consumer starts a scan through the C interface or by writing InterfaceUpdateList_Reg, so
    // that walking the features never rescans the adapters.
    xml.Add(NQGevXmlFeature{.type = "Command",
                            .name = "InterfaceUpdateList",
                            .nameSpace = "Standard",
                            .toolTip = "Updates the internal interface list.",
                            .displayName = "Interface Update List",
                            .visibility = "Beginner",
                            .imposedAccessMode = xml.IsStandard() ? "" : "RW",
                            .reg = xml.IsStandard() ? "InterfaceUpdateList_Reg" : "",
                            .fixed = xml.IsStandard() ? "" : "0",
                            .commandValue = "1"});
    xml.Disable(NQGevXmlFeature{.type = "Integer",
                                .name = "InterfaceUpdateTimeout",
                                .nameSpace = "Standard",
                                .toolTip = "Specifies the timeout of an update of the interface list.",
                                .displayName = "Interface Update Timeout",
                                .visibility = "Expert",
                                .imposedAccessMode = "RW",
                                .fixed = "0",
                                .unit = "ms"});
    xml.Add(NQGevXmlFeature{.type = "Integer",
                            .name = "InterfaceSelector",
                            .nameSpace = "Standard",
                            .toolTip = "Selector for the different GenTL Producer interfaces.",
                            .displayName = "Interface Selector",
                            .visibility = "Beginner",
                            .available = "InterfaceListNonEmpty_Form",
                            .reg = "InterfaceSelector_Reg",
                            .min = "0",
                            .maxNode = "InterfaceSelectorMax_Form",
                            .selected = {"InterfaceID", "GevInterfaceMACAddress", "GevInterfaceDefaultIPAddress",
                                         "GevInterfaceDefaultSubnetMask", "GevInterfaceDefaultGateway"}});
    xml.Add(NQGevXmlFeature{.type = "String",
                            .name = "InterfaceID",
                            .nameSpace = "Standard",
                            .toolTip = "GenTL Producer wide unique identifier of the selected interface.",
                            .displayName = "Interface ID",
                            .visibility = "Beginner",
                            .available = "InterfaceListNonEmpty_Form",
                            .reg = "InterfaceID_Reg"});
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
                            .available = "InterfaceListNonEmpty_Form",
                            .reg = reg,
                            .representation = representation});
}

void AddInterfaceEnumeration(NQGevXmlWriter& xml)
{
    xml.BeginGroup("InterfaceEnumeration");
    AddInterfaceSelection(xml);
    AddAddress(xml, "GevInterfaceMACAddress", "48-bit MAC address of the selected interface.", "Interface MAC Address",
               "GevInterfaceMACAddress_Reg", "MACAddress");
    AddAddress(xml, "GevInterfaceDefaultIPAddress", "IP address of the first subnet of the selected interface.",
               "Interface Default IP Address", "GevInterfaceDefaultIPAddress_Reg", "IPV4Address");
    AddAddress(xml, "GevInterfaceDefaultSubnetMask", "Subnet mask of the first subnet of the selected interface.",
               "Interface Default Subnet Mask", "GevInterfaceDefaultSubnetMask_Reg", "IPV4Address");
    AddAddress(xml, "GevInterfaceDefaultGateway", "Gateway of the first subnet of the selected interface.",
               "Interface Default Gateway", "GevInterfaceDefaultGateway_Reg", "IPV4Address");
    xml.EndGroup();
}

void AddSystemRegisters(NQGevXmlWriter& xml)
{
    const auto constant = [](const NQGevRegister& row) {
        return NQGevXmlRegister{.row = row, .port = kPort, .nameSpace = "Standard", .constant = true};
    };
    xml.BeginGroup("SystemInformation Registers");
    xml.AddString(constant(kSystemRegisters["TLVendorName_Reg"]));
    xml.AddString(constant(kSystemRegisters["TLModelName_Reg"]));
    xml.AddString(constant(kSystemRegisters["TLID_Reg"]));
    xml.AddString(constant(kSystemRegisters["TLVersion_Reg"]));
    xml.AddString(constant(kSystemRegisters["TLPath_Reg"]));
    xml.AddInteger(constant(kSystemRegisters["GenTLVersionMajor_Reg"]));
    xml.AddInteger(constant(kSystemRegisters["GenTLVersionMinor_Reg"]));
    xml.EndGroup();
}

void AddInterfaceRegisters(NQGevXmlWriter& xml)
{
    constexpr std::string_view kSelector = "InterfaceSelector_Reg";
    constexpr std::string_view kUpdate = "InterfaceUpdateList_Reg";
    xml.BeginGroup("InterfaceEnumeration Registers");
    xml.AddString({.row = kSystemRegisters["InterfaceID_Reg"], .port = kPort, .invalidator = kSelector});
    xml.AddInteger({.row = kSystemRegisters[kUpdate], .port = kPort, .cachable = "NoCache"});
    xml.AddInteger({.row = kSystemRegisters[kSelector], .port = kPort, .cachable = "NoCache", .invalidator = kUpdate});
    xml.AddInteger(
        {.row = kSystemRegisters["NrInterfaces_Reg"], .port = kPort, .cachable = "NoCache", .invalidator = kUpdate});
    const auto address = [&](const NQGevRegister& row, std::string_view visibility) {
        xml.AddInteger({.row = row, .port = kPort, .visibility = visibility, .invalidator = kSelector});
    };
    address(kSystemRegisters["GevInterfaceMACAddress_Reg"], "Invisible");
    address(kSystemRegisters["GevInterfaceDefaultIPAddress_Reg"], "Invisible");
    address(kSystemRegisters["GevInterfaceDefaultSubnetMask_Reg"], "");
    address(kSystemRegisters["GevInterfaceDefaultGateway_Reg"], "");
    xml.EndGroup();
}

std::string Create(const NQGevXmlEdition& edition)
{
    NQGevXmlWriter xml("NQGenTLRDMAGEV", "TL RegisterMap", edition);
    AddCategories(xml);
    AddSystemInformation(xml);
    AddInterfaceEnumeration(xml);
    AddSystemRegisters(xml);
    AddInterfaceRegisters(xml);
    xml.BeginGroup("InterfaceEnumeration Formulas");
    xml.Add(NQGevXmlFormula{"InterfaceListNonEmpty_Form", "", "NRINTS", "NrInterfaces_Reg", "NRINTS > 0"});
    xml.Add(NQGevXmlFormula{"InterfaceSelectorMax_Form", "", "NRINTS", "NrInterfaces_Reg", "NRINTS - 1"});
    xml.EndGroup();
    return xml.Finish({{.name = kPort, .displayName = "TL Port", .imposedAccessMode = "RW"}});
}

} // namespace

std::string CreateXmlFileSystem()
{
    return Create({});
}

std::string CreateStandardXmlFileSystem()
{
    return Create({.text = NQGevText::Standard,
                   .productGuid = "BC1C6BB8-74B7-40C4-A8EB-C882C7807BFA",
                   .versionGuid = "21CA5B03-105B-4D5F-9CC9-B39982342B23"});
}
