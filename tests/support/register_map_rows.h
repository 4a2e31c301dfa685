// SPDX-License-Identifier: Apache-2.0
// What the register descriptions have to contain and the ports have to serve, row by row, for the tests to compare.
// Kept apart from the code that does it: a change there is a change here, made with intent.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace nq::test
{

/// What the port gives to a read of a register.
enum class PortForm
{
    None,   ///< no read: an invalid address
    Map,    ///< the description's own text: any size is served
    Text,   ///< needs as much as it says
    Number, ///< four bytes
    Long,   ///< eight bytes
};

/// What the port does with a write to a register.
enum class PortWriting
{
    None, ///< an invalid address
    Denied,
    Taken,  ///< accepted without a number that can be read back
    Stored, ///< a number that can be read back
};

/// A register by its port and by its node in the description, which disagree in places on purpose.
struct RegisterRow
{
    std::uint64_t address;
    PortForm form;
    PortWriting writing;
    std::string
        node; ///< name | kind | length | access | cachable | polling | invalidator | other; empty without a node
};

/// Cells are separated by "|", members of a list by ", ", elements by "; ".
struct RegisterMapRows
{
    std::string modelName = {};
    std::string toolTip = {};
    std::vector<std::string> groups = {};
    std::vector<std::string> categories = {}; ///< name | name space | display name | visibility | members
    std::vector<std::string> features = {}; ///< name | type | name space | display name | visibility | value | elements
    std::vector<std::string> entries = {};  ///< feature: name = value, ...
    std::vector<RegisterRow> registers = {}; ///< in the order of the description; those without a node come last
    std::vector<std::string> formulas = {};  ///< name | name space | variables | formula
    std::vector<std::string> ports = {};     ///< name | name space | display name | visibility | elements
};

inline const RegisterMapRows kSystemRows{
    .modelName = "NQGenTLRDMAGEV",
    .toolTip = "TL RegisterMap",
    .groups = {"RootCategory", "SubCategories", "SystemInformation", "InterfaceEnumeration",
               "SystemInformation Registers", "InterfaceEnumeration Registers", "InterfaceEnumeration Formulas"},
    .categories =
        {
            "Root|Standard||Beginner|SystemInformation, InterfaceEnumeration",
            "SystemInformation|Standard|System Information|Beginner|TLID, TLVendorName, TLModelName, TLVersion, "
            "TLPath, "
            "TLType, GenTLVersionMajor, GenTLVersionMinor, GenTLSFNCVersionMajor, GenTLSFNCVersionMinor",
            "InterfaceEnumeration|Standard|Interface Enumeration|Beginner|InterfaceUpdateList, InterfaceSelector, "
            "InterfaceID, GevInterfaceMACAddress, GevInterfaceDefaultIPAddress, GevInterfaceDefaultSubnetMask, "
            "GevInterfaceDefaultGateway",
        },
    .features =
        {
            "TLID|String|Standard||Expert|TLID_Reg|",
            "TLVendorName|String|Standard|Manufacturer Name|Beginner|TLVendorName_Reg|",
            "TLModelName|String|Standard||Beginner|TLModelName_Reg|",
            "TLVersion|String|Standard|TL Version|Beginner|TLVersion_Reg|",
            "TLPath|String|Standard|TL Path|Expert|TLPath_Reg|",
            "TLType|Enumeration|Standard|Device Type|Expert|fixed 0|ImposedAccessMode RO",
            "GenTLVersionMajor|Integer|Standard|Gen TL Version Major|Expert|GenTLVersionMajor_Reg|",
            "GenTLVersionMinor|Integer|Standard|Gen TL Version Minor|Expert|GenTLVersionMinor_Reg|",
            "GenTLSFNCVersionMajor|Integer|Standard|GenTL SFNC Version Major|Expert|fixed 1|ImposedAccessMode RO",
            "GenTLSFNCVersionMinor|Integer|Standard|GenTL SFNC Version Minor|Expert|fixed 1|ImposedAccessMode RO",
            "InterfaceUpdateList|Command|Standard|Interface Update List|Beginner|fixed 0|ImposedAccessMode RW; "
            "CommandValue 1",
            "InterfaceSelector|Integer|Standard|Interface Selector|Beginner|InterfaceSelector_Reg|pIsAvailable "
            "InterfaceListNonEmpty_Form; Min 0; pMax InterfaceSelectorMax_Form; pSelected InterfaceID, "
            "GevInterfaceMACAddress, GevInterfaceDefaultIPAddress, GevInterfaceDefaultSubnetMask, "
            "GevInterfaceDefaultGateway",
            "InterfaceID|String|Standard|Interface ID|Beginner|InterfaceID_Reg|pIsAvailable InterfaceListNonEmpty_Form",
            "GevInterfaceMACAddress|Integer|Standard|Interface MAC "
            "Address|Expert|GevInterfaceMACAddress_Reg|pIsAvailable "
            "InterfaceListNonEmpty_Form; Representation MACAddress",
            "GevInterfaceDefaultIPAddress|Integer|Standard|Interface Default IP "
            "Address|Expert|GevInterfaceDefaultIPAddress_Reg|pIsAvailable InterfaceListNonEmpty_Form; Representation "
            "IPV4Address",
            "GevInterfaceDefaultSubnetMask|Integer|Standard|Interface Default Subnet "
            "Mask|Expert|GevInterfaceDefaultSubnetMask_Reg|pIsAvailable InterfaceListNonEmpty_Form; Representation "
            "IPV4Address",
            "GevInterfaceDefaultGateway|Integer|Standard|Interface Default "
            "Gateway|Expert|GevInterfaceDefaultGateway_Reg|pIsAvailable InterfaceListNonEmpty_Form; Representation "
            "IPV4Address",
        },
    .entries =
        {
            "TLType: GigEVision = 0, CameraLink = 1, CameraLinkHS = 2, CoaXPress = 3, USB3Vision = 4, Custom = 5",
        },
    .registers =
        {
            {0x50000, PortForm::Text, PortWriting::Denied, "TLVendorName_Reg|StringReg|256|RO||||NameSpace Standard"},
            {0x50100, PortForm::Text, PortWriting::Denied, "TLModelName_Reg|StringReg|256|RO||||NameSpace Standard"},
            {0x50200, PortForm::Text, PortWriting::Denied, "TLID_Reg|StringReg|256|RO||||NameSpace Standard"},
            {0x50300, PortForm::Text, PortWriting::Denied, "TLVersion_Reg|StringReg|256|RO||||NameSpace Standard"},
            {0x50400, PortForm::Text, PortWriting::Denied, "TLPath_Reg|StringReg|256|RO||||NameSpace Standard"},
            {0x50504, PortForm::Number, PortWriting::Denied, "GenTLVersionMajor_Reg|IntReg|4|RO||||NameSpace Standard"},
            {0x50508, PortForm::Number, PortWriting::Denied, "GenTLVersionMinor_Reg|IntReg|4|RO||||NameSpace Standard"},
            {0x50514, PortForm::Text, PortWriting::Denied, "InterfaceID_Reg|StringReg|256|RO|||InterfaceSelector_Reg|"},
            {0x5050C, PortForm::Number, PortWriting::Taken, "InterfaceUpdateList_Reg|IntReg|4|RW|NoCache|||"},
            {0x50510, PortForm::Number, PortWriting::Stored,
             "InterfaceSelector_Reg|IntReg|4|RW|NoCache||InterfaceUpdateList_Reg|"},
            {0x50614, PortForm::Number, PortWriting::Denied,
             "NrInterfaces_Reg|IntReg|4|RO|NoCache||InterfaceUpdateList_Reg|"},
            {0x50618, PortForm::Long, PortWriting::Denied,
             "GevInterfaceMACAddress_Reg|IntReg|8|RO|||InterfaceSelector_Reg|Visibility Invisible"},
            {0x50620, PortForm::Number, PortWriting::Denied,
             "GevInterfaceDefaultIPAddress_Reg|IntReg|4|RO|||InterfaceSelector_Reg|Visibility Invisible"},
            {0x50624, PortForm::Number, PortWriting::Denied,
             "GevInterfaceDefaultSubnetMask_Reg|IntReg|4|RO|||InterfaceSelector_Reg|"},
            {0x50628, PortForm::Number, PortWriting::Denied,
             "GevInterfaceDefaultGateway_Reg|IntReg|4|RO|||InterfaceSelector_Reg|"},
            {0x10000, PortForm::Map, PortWriting::Denied, ""},
        },
    .formulas =
        {
            "InterfaceListNonEmpty_Form||NRINTS is NrInterfaces_Reg|NRINTS > 0",
            "InterfaceSelectorMax_Form||NRINTS is NrInterfaces_Reg|NRINTS - 1",
        },
    .ports =
        {
            "TLPort|Standard|TL Port|Invisible|ImposedAccessMode RW",
        },
};

inline const RegisterMapRows kInterfaceRows{
    .modelName = "NQGenTLGev",
    .toolTip = "IF RegisterMap",
    .groups = {"RootCategory", "SubCategories", "InterfaceInformation", "DeviceEnumeration",
               "InterfaceInformation Registers", "DeviceEnumeration Registers", "DeviceEnumeration Formulas"},
    .categories =
        {
            "Root|Standard||Beginner|InterfaceInformation, DeviceEnumeration",
            "InterfaceInformation|Standard|Interface Information|Expert|InterfaceID, InterfaceType, "
            "InterfaceTLVersionMajor, InterfaceTLVersionMinor, GevInterfaceGatewaySelector, GevInterfaceGateway, "
            "GevInterfaceMACAddress, GevInterfaceSubnetSelector, GevInterfaceSubnetIPAddress, GevInterfaceSubnetMask",
            "DeviceEnumeration|Standard|Device Enumeration|Expert|DeviceUpdateList, DeviceSelector, DeviceID, "
            "DeviceVendorName, DeviceModelName, DeviceAccessStatus, DeviceTLVersionMajor, DeviceTLVersionMinor, "
            "GevDeviceIPAddress, GevDeviceSubnetMask, GevDeviceMACAddress",
        },
    .features =
        {
            "InterfaceID|String|Standard|Interface ID|Expert|InterfaceID_Reg|",
            "InterfaceType|Enumeration|Standard|Device Type|Expert|fixed 0|ImposedAccessMode RO",
            "InterfaceTLVersionMajor|Integer|Standard|Interface TL Version Major|Expert|fixed 1|ImposedAccessMode RO",
            "InterfaceTLVersionMinor|Integer|Standard|Interface TL Version Minor|Expert|fixed 3|ImposedAccessMode RO",
            "GevInterfaceGatewaySelector|Integer|Standard|Gev Interface Gateway "
            "Selector|Expert|GevInterfaceGatewaySelector_Reg|pIsAvailable GatewayListNotEmpty_Form; Min 0; pMax "
            "GevInterfaceGatewaySelectorMax_Form; pSelected GevInterfaceGateway",
            "GevInterfaceGateway|Integer|Standard|Gev Interface Gateway|Expert|GevInterfaceGateway_Reg|pIsAvailable "
            "GatewayListNotEmpty_Form; Representation IPV4Address",
            "GevInterfaceMACAddress|Integer|Standard|Gev Interface MAC "
            "Address|Expert|GevInterfaceMACAddress_Reg|Representation MACAddress",
            "GevInterfaceSubnetSelector|Integer|Standard|Gev Interface Subnet "
            "Selector|Expert|GevInterfaceSubnetSelector_Reg|Min 0; pMax GevInterfaceSubnetSelectorMax_Form; pSelected "
            "GevInterfaceSubnetIPAddress, GevInterfaceSubnetMask",
            "GevInterfaceSubnetIPAddress|Integer|Standard|Gev Interface Subnet IP "
            "Address|Expert|GevInterfaceSubnetIPAddress_Reg|Representation IPV4Address",
            "GevInterfaceSubnetMask|Integer|Standard|Gev Interface Subnet "
            "Mask|Expert|GevInterfaceSubnetMask_Reg|Representation IPV4Address",
            "DeviceUpdateList|Command|Standard|Device Update List|Expert|DeviceUpdateList_Reg|CommandValue 1",
            "DeviceSelector|Integer|Standard|Device Selector|Expert|DeviceSelector_Reg|pIsAvailable "
            "DeviceListNonEmpty_Form; Min 0; pMax DeviceListMax_Form; pSelected DeviceID, DeviceVendorName, "
            "DeviceModelName, DeviceAccessStatus, DeviceTLVersionMajor, DeviceTLVersionMinor, GevDeviceIPAddress, "
            "GevDeviceSubnetMask, GevDeviceMACAddress",
            "DeviceID|String|Standard|Device ID|Expert|DeviceID_Reg|pIsAvailable DeviceListNonEmpty_Form",
            "DeviceVendorName|String|Standard|Device Vendor Name|Expert|DeviceVendorName_Reg|pIsAvailable "
            "DeviceListNonEmpty_Form",
            "DeviceModelName|String|Standard|Device Model Name|Expert|DeviceModelName_Reg|pIsAvailable "
            "DeviceListNonEmpty_Form",
            "DeviceAccessStatus|Enumeration|Standard|Device Access Status|Expert|DeviceAccessStatus_Reg|pIsAvailable "
            "DeviceListNonEmpty_Form",
            "DeviceTLVersionMajor|Integer|Standard|Device TL Version Major|Expert|fixed 1|ImposedAccessMode RO",
            "DeviceTLVersionMinor|Integer|Standard|Device TL Version Minor|Expert|fixed 3|ImposedAccessMode RO",
            "GevDeviceIPAddress|Integer|Standard|Gev Device IP Address|Expert|GevDeviceIPAddress_Reg|pIsAvailable "
            "DeviceListNonEmpty_Form; Representation IPV4Address",
            "GevDeviceSubnetMask|Integer|Standard|Gev Device Subnet Mask|Expert|GevDeviceSubnetMask_Reg|pIsAvailable "
            "DeviceListNonEmpty_Form; Representation IPV4Address",
            "GevDeviceMACAddress|Integer|Standard|Gev Device MAC Address|Expert|GevDeviceMACAddress_Reg|pIsAvailable "
            "DeviceListNonEmpty_Form; Representation MACAddress",
        },
    .entries =
        {
            "InterfaceType: GigEVision = 0, CameraLink = 1, CameraLinkHS = 2, CoaXPress = 3, USB3Vision = 4, Custom = "
            "5",
            "DeviceAccessStatus: Unknown = 0, ReadWrite = 1, ReadOnly = 2, NoAccess = 3, Busy = 4, OpenReadWrite = 5, "
            "OpenReadOnly = 6",
        },
    .registers =
        {
            {0x60000, PortForm::Text, PortWriting::Denied, "InterfaceID_Reg|StringReg|256|RO||||"},
            {0x60414, PortForm::Number, PortWriting::Taken, "GevInterfaceGatewaySelector_Reg|IntReg|4|RW||||"},
            {0x60418, PortForm::Number, PortWriting::Denied, "NrGateways_Reg|IntReg|4|RO||||"},
            {0x6041C, PortForm::Number, PortWriting::Denied,
             "GevInterfaceGateway_Reg|IntReg|4|RO|||GevInterfaceGatewaySelector_Reg|"},
            {0x60420, PortForm::Long, PortWriting::Denied, "GevInterfaceMACAddress_Reg|IntReg|8|RO||||"},
            {0x60428, PortForm::Number, PortWriting::Taken, "GevInterfaceSubnetSelector_Reg|IntReg|4|RW||||"},
            {0x60430, PortForm::Number, PortWriting::Denied, "NrSubnets_Reg|IntReg|4|RO||||"},
            {0x60434, PortForm::Number, PortWriting::Denied,
             "GevInterfaceSubnetIPAddress_Reg|IntReg|4|RO|||GevInterfaceSubnetSelector_Reg|"},
            {0x60438, PortForm::Number, PortWriting::Denied,
             "GevInterfaceSubnetMask_Reg|IntReg|4|RO|||GevInterfaceSubnetMask_Reg|"},
            {0x6010C, PortForm::Text, PortWriting::Denied, "DeviceID_Reg|StringReg|256|RO|||DeviceSelector_Reg|"},
            {0x6020C, PortForm::Text, PortWriting::Denied,
             "DeviceVendorName_Reg|StringReg|256|RO|||DeviceSelector_Reg|"},
            {0x6030C, PortForm::Text, PortWriting::Denied,
             "DeviceModelName_Reg|StringReg|256|RO|||DeviceSelector_Reg|"},
            {0x60104, PortForm::Number, PortWriting::Taken, "DeviceUpdateList_Reg|IntReg|4|RW|NoCache|||"},
            {0x60108, PortForm::Number, PortWriting::Stored,
             "DeviceSelector_Reg|IntReg|4|RW|NoCache||DeviceUpdateList_Reg|"},
            {0x6040C, PortForm::Number, PortWriting::Denied,
             "DeviceAccessStatus_Reg|IntReg|4|RO|||DeviceSelector_Reg|"},
            {0x60410, PortForm::Number, PortWriting::Denied,
             "NrDevices_Reg|IntReg|4|RO|NoCache||DeviceUpdateList_Reg|"},
            {0x6043C, PortForm::Number, PortWriting::Denied,
             "GevDeviceIPAddress_Reg|IntReg|4|RO|||DeviceSelector_Reg|"},
            {0x60440, PortForm::Number, PortWriting::Denied,
             "GevDeviceSubnetMask_Reg|IntReg|4|RO|||DeviceSelector_Reg|"},
            {0x60444, PortForm::Long, PortWriting::Denied, "GevDeviceMACAddress_Reg|IntReg|8|RO|||DeviceSelector_Reg|"},
            {0x10000, PortForm::Map, PortWriting::Denied, ""},
            {0x60448, PortForm::None, PortWriting::Taken, ""},
        },
    .formulas =
        {
            "GevInterfaceGatewaySelectorMax_Form|Custom|NRGWYS is NrGateways_Reg|NRGWYS - 1",
            "GatewayListNotEmpty_Form|Custom|NRGWYS is NrGateways_Reg|NRGWYS > 0",
            "GevInterfaceSubnetSelectorMax_Form|Custom|NRSUBS is NrSubnets_Reg|NRSUBS - 1",
            "DeviceListNonEmpty_Form||NRDEVS is NrDevices_Reg|NRDEVS > 0",
            "DeviceListMax_Form||NRDEVS is NrDevices_Reg|NRDEVS - 1",
        },
    .ports =
        {
            "InterfacePort|Standard|Interface Port|Invisible|ImposedAccessMode RW",
        },
};

inline const RegisterMapRows kDeviceRows{
    .modelName = "NQGenTLGev",
    .toolTip = "Device RegisterMap",
    .groups = {"RootCategory", "SubCategories", "DeviceInformation", "StreamEnumeration", "XMLFileInjection",
               "EventControl", "DeviceInformation Registers", "StreamEnumeration Registers", "UpdateXML Registers",
               "Event Control Registers", "StreamEnumeration Formulas"},
    .categories =
        {
            "Root|Standard||Beginner|DeviceInformation, StreamEnumeration, XMLFileInjection, EventControl",
            "DeviceInformation|Standard|Device Information|Beginner|DeviceID, DeviceVendorName, DeviceModelName, "
            "DeviceType, DeviceAccessStatus, GevDeviceMACAddress, GevDeviceIPAddress, GevDeviceSubnetMask, "
            "GevDeviceGateway",
            "StreamEnumeration|Standard|Stream Enumeration|Beginner|StreamSelector, StreamID",
            "XMLFileInjection|Custom|XML File Injection|Beginner|XMLFile, UpdateXML",
            "EventControl|Standard|Event Control|Expert|EventSelector, EventNotification, "
            "EventRemoteDeviceConnectionStateData",
            "EventRemoteDeviceConnectionStateData|Custom|Remote Device Connection Status "
            "Data|Expert|EventRemoteDeviceConnectionStateID, EventRemoteDeviceConnectionStateState",
        },
    .features =
        {
            "DeviceID|String|Standard|Device ID|Expert|DeviceID_Reg|",
            "DeviceVendorName|String|Standard|Device Vendor Name|Beginner|DeviceVendorName_Reg|",
            "DeviceModelName|String|Standard|Device Model Name|Beginner|DeviceModelName_Reg|",
            "DeviceType|Enumeration|Standard|Device Type|Expert|fixed 0|ImposedAccessMode RO",
            "DeviceAccessStatus|Enumeration|Standard|Device Access Status|Expert|DeviceAccessStatus_Reg|",
            "GevDeviceMACAddress|Integer|Standard|Gev Device MAC Address|Expert|GevDeviceMACAddress_Reg|Representation "
            "MACAddress",
            "GevDeviceIPAddress|Integer|Standard|Gev Device IP Address|Expert|GevDeviceIPAddress_Reg|Representation "
            "IPV4Address",
            "GevDeviceSubnetMask|Integer|Standard|Gev Device Subnet Mask|Expert|GevDeviceSubnetMask_Reg|Representation "
            "IPV4Address",
            "GevDeviceGateway|Integer|Standard|Gev Device Gateway|Expert|GevDeviceGateway_Reg|Representation "
            "IPV4Address",
            "StreamSelector|Integer|Standard|Stream Selector|Beginner|StreamSelector_Reg|pIsAvailable "
            "StreamListNonEmpty_Form; Min 0; pMax StreamListMax_Form; pSelected StreamID",
            "StreamID|String|Standard|Stream ID|Beginner|StreamID_Reg|pIsAvailable StreamListNonEmpty_Form",
            "XMLFile|String|Custom|XML File|Guru|UpdateXMLFile_Reg|",
            "UpdateXML|Command|Custom|Update XML|Expert|UpdateXML_Reg|CommandValue 1",
            "EventSelector|Enumeration|Standard|Event Selector|Expert|fixed 0|ImposedAccessMode RW; pSelected "
            "EventNotification",
            "EventNotification|Enumeration|Standard|Event Notification|Beginner|EventNotification_Reg|",
            "EventRemoteDeviceConnectionStateID|Integer|Custom||Expert|EventRemoteDeviceConnectionStateID_Reg|"
            "ImposedAccessMode RO; Representation HexNumber",
            "EventRemoteDeviceConnectionStateState|Integer|Custom||Expert|EventRemoteDeviceConnectionStateState_Reg|"
            "ImposedAccessMode RO",
        },
    .entries =
        {
            "DeviceType: GigEVision = 0, CameraLink = 1, CameraLinkHS = 2, CoaXPress = 3, USB3Vision = 4, Custom = 5",
            "DeviceAccessStatus: Unknown = 0, ReadWrite = 1, ReadOnly = 2, NoAccess = 3, Busy = 4, OpenReadWrite = 5, "
            "OpenReadOnly = 6",
            "EventSelector: RemoteDeviceConnectionState = 0",
            "EventNotification: Off = 0, On = 1",
        },
    .registers =
        {
            {0x70000, PortForm::Text, PortWriting::Denied, "DeviceID_Reg|StringReg|256|RO||||"},
            {0x70100, PortForm::Text, PortWriting::Denied, "DeviceVendorName_Reg|StringReg|256|RO||||"},
            {0x70200, PortForm::Text, PortWriting::Denied, "DeviceModelName_Reg|StringReg|256|RO||||"},
            {0x70300, PortForm::Number, PortWriting::Denied, "DeviceAccessStatus_Reg|IntReg|4|RO||||"},
            {0x7040C, PortForm::Long, PortWriting::Denied, "GevDeviceMACAddress_Reg|IntReg|8|RO||||"},
            {0x70410, PortForm::Number, PortWriting::Denied, "GevDeviceIPAddress_Reg|IntReg|4|RO||||"},
            {0x70414, PortForm::Number, PortWriting::Denied, "GevDeviceSubnetMask_Reg|IntReg|4|RO||||"},
            {0x70418, PortForm::Number, PortWriting::Denied, "GevDeviceGateway_Reg|IntReg|4|RO||||"},
            {0x70304, PortForm::Number, PortWriting::Stored, "StreamSelector_Reg|IntReg|4|RW|NoCache|||"},
            {0x70308, PortForm::Text, PortWriting::Denied, "StreamID_Reg|StringReg|256|RO|||StreamSelector_Reg|"},
            {0x70408, PortForm::Number, PortWriting::Denied, "NrStreams_Reg|IntReg|4|RO|NoCache|||"},
            {0x7041C, PortForm::Text, PortWriting::Taken, "UpdateXMLFile_Reg|StringReg|512|RW||||"},
            {0x7052C, PortForm::Number, PortWriting::Taken, "UpdateXML_Reg|IntReg|4|RW|NoCache|||"},
            {0x70530, PortForm::Number, PortWriting::Stored, "EventNotification_Reg|IntReg|4|RW|NoCache|||"},
            {0x00, PortForm::None, PortWriting::None,
             "EventRemoteDeviceConnectionStateID_Reg|IntReg|4|RO||||NameSpace Custom; Visibility Invisible; pPort "
             "RemoteDeviceConnectionStatePort"},
            {0x04, PortForm::None, PortWriting::None,
             "EventRemoteDeviceConnectionStateState_Reg|IntReg|4|RO||||NameSpace Custom; Visibility Invisible; pPort "
             "RemoteDeviceConnectionStatePort"},
            {0x10000, PortForm::Map, PortWriting::Denied, ""},
            {0x7051C, PortForm::None, PortWriting::Denied, ""},
        },
    .formulas =
        {
            "StreamListNonEmpty_Form||NRSTRMS is NrStreams_Reg|NRSTRMS > 0",
            "StreamListMax_Form||NRSTRMS is NrStreams_Reg|NRSTRMS - 1",
        },
    .ports =
        {
            "RemoteDeviceConnectionStatePort|Standard||Invisible|EventID 77777701",
            "DevicePort|Standard|Device Port|Invisible|ImposedAccessMode RW",
        },
};

inline const RegisterMapRows kDataStreamRows{
    .modelName = "NQGenTLGev",
    .toolTip = "Data Stream RegisterMap",
    .groups = {"RootCategory", "SubCategories", "StreamInformation", "BufferHandlingControl", "ChannelStatistics",
               "EventControl", "EventControl Register", "StreamInformation Registers", "StreamInformation Registers",
               "StreamInformation Registers"},
    .categories =
        {
            "Root|Standard||Beginner|StreamInformation, BufferHandlingControl, ChannelStatistics, EventControl",
            "StreamInformation|Standard|Stream Information|Expert|StreamID, StreamType",
            "BufferHandlingControl|Standard|Buffer Handling Control|Beginner|StreamAnnouncedBufferCount, "
            "StreamBufferHandlingMode, StreamAnnounceBufferMinimum",
            "ChannelStatistics|Custom|Channel Statistics|Expert|FrameLoss, FramesReceived",
            "EventControl|Standard|Event Control|Expert|EventSelector, EventNotification",
        },
    .features =
        {
            "StreamID|String|Standard|Stream ID|Expert|StreamID_Reg|",
            "StreamType|Enumeration|Standard|Stream Type|Expert|fixed 0|ImposedAccessMode RO",
            "StreamAnnouncedBufferCount|Integer|Standard|Stream Announced Buffer "
            "Count|Expert|StreamAnnouncedBufferCount_Reg|",
            "StreamBufferHandlingMode|Enumeration|Standard|Stream Buffer Handling "
            "Mode|Beginner|StreamBufferHandlingMode_Reg|ImposedAccessMode RO",
            "StreamAnnounceBufferMinimum|Integer|Standard|Stream Announce Buffer "
            "Minimum|Expert|StreamAnnounceBufferMinimum_Reg|",
            "FrameLoss|Integer|Custom|Frame Loss|Expert|FrameLoss_Reg|",
            "FramesReceived|Integer|Custom|Frames Received|Expert|FramesReceived_Reg|",
            "EventSelector|Enumeration|Custom|Event Selector|Expert|EventSelector_reg|pSelected EventNotification",
            "EventNotification|Enumeration|Custom|Event Notification|Expert|EventNotification_reg|",
        },
    .entries =
        {
            "StreamType: GigEVision = 0, CameraLink = 1, CameraLinkHS = 2, CoaXPress = 3, USB3Vision = 4, Custom = 5",
            "StreamBufferHandlingMode: OldestFirst = 0, OldestFirstOverwrite = 1, NewestOnly = 2",
            "EventSelector: EventFrameStartOfTransfer = 0, EventFrameCompleted = 1, EventFrameIncomplete = 2, "
            "EventFrameAbondoned = 3",
            "EventNotification: Off = 0, On = 1",
        },
    .registers =
        {
            {0x10100, PortForm::None, PortWriting::None, "EventSelector_reg|IntReg|4|RW|NoCache|||Endianess BigEndian"},
            {0x10104, PortForm::None, PortWriting::None,
             "EventNotification_reg|IntReg|4|RW|NoCache|||Endianess BigEndian"},
            {0x80000, PortForm::Text, PortWriting::Denied, "StreamID_Reg|StringReg|256|RO||||"},
            {0x80100, PortForm::Number, PortWriting::Denied,
             "StreamAnnouncedBufferCount_Reg|IntReg|4|RO|NoCache|1000||"},
            {0x80104, PortForm::Number, PortWriting::Taken, "StreamBufferHandlingMode_Reg|IntReg|4|RW||||"},
            {0x80108, PortForm::Number, PortWriting::Denied,
             "StreamAnnounceBufferMinimum_Reg|IntReg|4|RO||||Visibility Invisible"},
            {0x8010C, PortForm::Long, PortWriting::Denied, "StreamDeliveredFrameCount_Reg|IntReg|8|RO|NoCache|1000||"},
            {0x80110, PortForm::Long, PortWriting::Denied, "FrameLoss_Reg|IntReg|4|RO|NoCache|1000||"},
            {0x80114, PortForm::Long, PortWriting::Denied, "FramesReceived_Reg|IntReg|4|RO|NoCache|1000||"},
            {0x10000, PortForm::Map, PortWriting::Denied, ""},
            {0x80118, PortForm::None, PortWriting::Denied, ""},
            {0x80218, PortForm::None, PortWriting::Denied, ""},
            {0x80418, PortForm::None, PortWriting::Denied, ""},
            {0x8041C, PortForm::None, PortWriting::Denied, ""},
            {0x80420, PortForm::None, PortWriting::Denied, ""},
            {0x80424, PortForm::None, PortWriting::Denied, ""},
            {0x80428, PortForm::None, PortWriting::Denied, ""},
            {0x8042C, PortForm::Long, PortWriting::Denied, ""},
            {0x80430, PortForm::Long, PortWriting::Denied, ""},
            {0x80434, PortForm::Number, PortWriting::Stored, ""},
        },
    .ports =
        {
            "StreamPort|Standard|Stream Port|Invisible|ImposedAccessMode RW",
        },
};

} // namespace nq::test
