// SPDX-License-Identifier: Apache-2.0
// What the ports of this transport's modules share: their identity, their register description and the way in which
// values pass between a register and the caller's buffer. All of it is reentrant.
#pragma once

#include "gentl/nq_gentl_port_info.h"
#include "gentl/nq_gentl_xml_info.h"
#include "gev/nq_gev_register_map.h"

#include <cstddef>
#include <string>
#include <vector>

/// The identity of a little-endian port that can be read and written.
GigERDMA::_NQ_GENTL_PORT_INFO NQGevPortInfo(const char* module, const char* portName);

/// The description `xml` under the name that its URL gives it.
GigERDMA::_NQ_GENTL_XML_INFO NQGevXmlInfo(const char* fileName, std::string xml);

/// The one URL of a port that serves its own description.
std::vector<std::string> NQGevUrlList(const GigERDMA::_NQ_GENTL_XML_INFO& info);

/// Traces the refusal of a port access without a buffer or a size; its code, GC_ERR_INVALID_PARAMETER.
int NQGevPortRefused(const char* operation);

/// The result of a write to an address of which no register takes one: GC_ERR_ACCESS_DENIED where the map has a row,
/// else GC_ERR_INVALID_ADDRESS.
int NQGevWriteRefused(const NQGevRegisterMap& map, unsigned long address);

/// The caller's buffer in the read of one register. Every operation gives the result of the read; a value that does not
/// fit is GC_ERR_BUFFER_TOO_SMALL, with the size it needs in `*size`.
class NQGevPortReader
{
  public:
    NQGevPortReader(void* buffer, unsigned long* size) : m_buffer(buffer), m_size(size) {}

    /// 4 bytes, 8 bytes, or the text with its terminating zero.
    int Number(unsigned int value) const;
    int LongNumber(unsigned long value) const;
    int Text(const std::string& value) const;

    /// Copies as much of the description as the buffer takes; `*size` stays. Always GC_ERR_SUCCESS.
    int Description(const GigERDMA::_NQ_GENTL_XML_INFO& info) const;

  private:
    void* m_buffer;
    unsigned long* m_size;
};

/// Copies `count` bytes, up to three, that lie behind what the caller said is theirs, asking the kernel for each: one
/// that cannot be read leaves its byte of `to` as it is.
void NQGevCopyReadable(const unsigned char* from, unsigned char* to, std::size_t count);

/// The value that a write gives a 4-byte register: the first four bytes of `buffer`, whatever `size` says. Those behind
/// the size that cannot be read are zeros.
unsigned int NQGevRegisterValue(const void* buffer, unsigned long size);
