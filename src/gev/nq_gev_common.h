// SPDX-License-Identifier: Apache-2.0
// The records of adapters and cameras, the constants and the register descriptions that the gev modules share.
#pragma once

#include <netinet/in.h>
#include <string>

namespace GigERDMA
{

/// What GenTL asks of every interface, whatever its transport.
struct _NQ_GENTL_INTERFACE_INFO
{
    std::string id;
    std::string displayName;
    std::string tlType;
};

/// What GenTL asks of every device, whatever its transport.
struct _NQ_GENTL_DEVICE_INFO
{
    std::string id;
    std::string vendorName;
    std::string modelName;
    std::string displayName;
    std::string tlType;
    unsigned int accessStatus = 0;
    std::string userDefinedName;
    std::string serialNumber;
    std::string deviceVersion;
};

} // namespace GigERDMA

/// One adapter address as a scan found it, its addresses kept as text. A value: copied freely, never shared.
struct _NQ_GEV_INTERFACE_INFO : GigERDMA::_NQ_GENTL_INTERFACE_INFO
{
    unsigned int spareWord = 0; ///< Always 0.
    std::string adapterName;    ///< The kernel's name, an alias label included.
    std::string spareText;      ///< Always empty.
    std::string macAddress;     ///< Six lower-case hexadecimal pairs joined with "-".
    std::string ipAddress;      ///< Dotted decimal.
    std::string subnetMask;     ///< Dotted decimal.
    std::string gateway;        ///< Always empty: nothing tells which gateway belongs to an adapter.
};

/// One camera as seen from one interface. Numbers are in host order, so the first octet of an address is its most
/// significant byte. A value: copied freely, never shared. Source of the fields: GigE Vision, discovery acknowledge.
struct _NQ_GEV_DEVICE_INFO : GigERDMA::_NQ_GENTL_DEVICE_INFO
{
    unsigned long spareQuad = 0;      ///< Always 0.
    unsigned int spareWord = 0;       ///< 0 in the list; a remote device keeps the heartbeat timeout here.
    unsigned int specVersion = 0;     ///< Major version in the upper half, minor in the lower.
    unsigned int deviceMode = 0;      ///< Bits of the device mode register.
    unsigned int spareWord2 = 0;      ///< 0 in the list; a remote device keeps the GVCP capability here.
    unsigned int macHigh = 0;         ///< Upper 16 bits of the MAC address.
    unsigned int macLow = 0;          ///< Lower 32 bits of the MAC address.
    unsigned int ipConfigOptions = 0; ///< IP configurations the camera supports.
    unsigned int ipConfigCurrent = 0; ///< IP configuration in use.
    unsigned int ipAddress = 0;
    unsigned int subnetMask = 0;
    unsigned int gateway = 0;
    unsigned int interfaceIp = 0;   ///< Address of the interface that found the camera.
    unsigned int interfaceMask = 0; ///< Netmask of that interface.
    sockaddr_in controlAddress{};   ///< Where the camera takes GVCP commands, in network order.
};

/// Address at which every module's port serves its register description.
inline constexpr unsigned long kXmlAddress = 0x10000;

inline constexpr char g_XmlFileNameSystem[] = "NQGenTLGev_TL_1_0_0.xml";
inline constexpr char g_XmlFileNameInterface[] = "NQGenTLGev_IF_1_0_0.xml";
inline constexpr char g_XmlFileNameDevice[] = "NQGenTLGev_DEV_1_0_0.xml";
inline constexpr char g_XmlFileNameDataStream[] = "NQGenTLGev_DS_1_0_0.xml";

// Other names for the standard's texts: consumers keep descriptions by name.
inline constexpr char kStandardXmlFileNameSystem[] = "NQGenTLGevStandard_TL_1_0_0.xml";
inline constexpr char kStandardXmlFileNameInterface[] = "NQGenTLGevStandard_IF_1_0_0.xml";
inline constexpr char kStandardXmlFileNameDevice[] = "NQGenTLGevStandard_DEV_1_0_0.xml";
inline constexpr char kStandardXmlFileNameDataStream[] = "NQGenTLGevStandard_DS_1_0_0.xml";

/// The register description of a module's port, a GenApi 1.1 text: the same text at each call, owned by the caller.
/// Thread-safe; nothing fails but memory.
std::string CreateXmlFileSystem();
std::string CreateXmlFileInterface();
std::string CreateXmlFileDevice();
std::string CreateXmlFileDataStream();

/// The same for the standard's answers.
std::string CreateStandardXmlFileSystem();
std::string CreateStandardXmlFileInterface();
std::string CreateStandardXmlFileDevice();
std::string CreateStandardXmlFileDataStream();
