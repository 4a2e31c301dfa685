// SPDX-License-Identifier: Apache-2.0
// Free-standing GVCP commands.
#include "gev/nq_gev_util.h"

#include "gige/gvcp_wire.h"

std::vector<unsigned char> NQGevUtil::CreateGVCPCommand(unsigned short command, unsigned char* payload,
                                                        unsigned short length, unsigned char flags,
                                                        unsigned short requestId)
{
    if (payload != nullptr && length == 0)
    {
        return {};
    }
    std::vector<unsigned char> packet{gvcp_wire::kKey, flags};
    for (const unsigned short word : {command, length, requestId})
    {
        packet.push_back(static_cast<unsigned char>(word >> 8));
        packet.push_back(static_cast<unsigned char>(word & 0xFF));
    }
    // Deliberate(LengthWithoutAPayload): without a payload the length field keeps what it was given, a body that is not
    // there included: the caller alone answers for what its header claims.
    if (payload != nullptr)
    {
        packet.insert(packet.end(), payload, payload + length);
    }
    return packet;
}
