// SPDX-License-Identifier: Apache-2.0
// Stateless helpers of the gev modules: the host's network adapters, address texts, and free-standing GVCP commands.
#pragma once

#include <string>
#include <vector>

struct _NQ_GEV_INTERFACE_INFO;

/// Reentrant: none keeps state between calls.
class NQGevUtil
{
  public:
    /// Builds a GVCP command packet, header and payload, with the request id given. A null `payload` gives the bare
    /// header, whose length field still says `length`; a payload of length 0 gives an empty vector.
    static std::vector<unsigned char> CreateGVCPCommand(unsigned short command, unsigned char* payload,
                                                        unsigned short length, unsigned char flags,
                                                        unsigned short requestId);

    /// Appends one record per adapter address to `interfaces`. False when no socket could be made. The transport layer
    /// type is not looked at.
    static bool DiscoverInterfaces(int tlType, std::vector<_NQ_GEV_INTERFACE_INFO>& interfaces);

    /// The addresses of one adapter as they are now; outputs without an answer stay, the gateway always does. False
    /// when the adapters could not be listed.
    static bool GetAdapterInfo(std::string adapterName, std::string& ipAddress, std::string& subnetMask,
                               std::string& gateway);

    /// The default gateway by which the kernel routes through that adapter now, in host order; 0 when there is none.
    static unsigned int GetDefaultGateway(const std::string& adapterName);

    /// The first octet becomes the most significant byte.
    static unsigned int IPAddressToUint32(std::string address);

    /// The first octet comes from the least significant byte.
    static std::string IPAddressToString(unsigned int address);

    /// The first pair becomes bits 47 to 40; 0 for a text that is no MAC address.
    static unsigned long MacAddressToUint64(std::string address);
    static std::string MacAddressToString(unsigned char first, unsigned char second, unsigned char third,
                                          unsigned char fourth, unsigned char fifth, unsigned char sixth);
};
