// SPDX-License-Identifier: Apache-2.0
// The ports of the modules as the standard has them: any range inside a register or the register description.
#pragma once

#include "gentl/nq_gentl_xml_info.h"
#include "gev/nq_gev_register_map.h"

#include <functional>

/// What a module has behind its port. A register is named by its address in the library's own answers, and read or
/// written whole.
struct NQGevPort
{
    const NQGevRegisterMap& map;
    std::function<GigERDMA::_NQ_GENTL_XML_INFO()> describe;
    std::function<int(unsigned long address, void* buffer, unsigned long* size)> read;
    std::function<int(unsigned long address, const void* buffer, unsigned long* size)> write;
};

/// The port of a module that reads and writes its registers by these two.
template <typename Module>
NQGevPort NQGevPortOf(Module& module, const NQGevRegisterMap& map,
                      int (Module::*read)(unsigned long address, void* buffer, unsigned long* size),
                      int (Module::*write)(unsigned long address, const void* buffer, unsigned long* size))
{
    return {map, [&module] { return module.GetXMLInfo(); }, std::bind_front(read, &module),
            std::bind_front(write, &module)};
}

/// Reads `size` bytes inside one register, whose value is filled up with zeros, or inside the description and the zero
/// behind it. The result of the module's read; GC_ERR_INVALID_ADDRESS for any other range. A failed read leaves
/// `buffer` alone. Reentrant.
int NQGevReadRange(const NQGevPort& port, unsigned long address, void* buffer, unsigned long size);

/// Writes `size` bytes inside one register; the others of it are written as they are read before. The result of the
/// module's write, GC_ERR_ACCESS_DENIED for a range that can only be read, GC_ERR_INVALID_ADDRESS for any other.
/// Two at once on one register: parts of one may be lost.
int NQGevWriteRange(const NQGevPort& port, unsigned long address, const void* buffer, unsigned long size);
