// SPDX-License-Identifier: Apache-2.0
// Ranges of a module's registers and of its description.
#include "gev/nq_gev_port_range.h"

#include "GenTL/GenTL.h"
#include "gev/nq_gev_common.h"

#include <cstring>
#include <vector>

namespace
{

/// Whether all of the range lies in the description and the zero behind it.
bool IsInDescription(const GigERDMA::_NQ_GENTL_XML_INFO& info, unsigned long address, unsigned long size)
{
    return address >= kXmlAddress && address - kXmlAddress < info.size && size <= info.size - (address - kXmlAddress);
}

} // namespace

int NQGevReadRange(const NQGevPort& port, unsigned long address, void* buffer, unsigned long size)
{
    const NQGevRegister* const row = port.map.FindStandard(address, size);
    if (row == nullptr)
    {
        const GigERDMA::_NQ_GENTL_XML_INFO info = port.describe();
        if (!IsInDescription(info, address, size))
        {
            return GenTL::GC_ERR_INVALID_ADDRESS;
        }
        std::memcpy(buffer, info.xml.c_str() + (address - kXmlAddress), size);
        return GenTL::GC_ERR_SUCCESS;
    }
    const NQGevPlace place = row->In(NQGevText::Standard);
    std::vector<unsigned char> value(place.length);
    unsigned long length = value.size();
    const int result = port.read(row->address, value.data(), &length);
    if (result == GenTL::GC_ERR_SUCCESS)
    {
        std::memcpy(buffer, value.data() + (address - place.address), size);
    }
    return result;
}

int NQGevWriteRange(const NQGevPort& port, unsigned long address, const void* buffer, unsigned long size)
{
    const NQGevRegister* const row = port.map.FindStandard(address, size);
    if (row == nullptr)
    {
        return IsInDescription(port.describe(), address, size) ? GenTL::GC_ERR_ACCESS_DENIED
                                                               : GenTL::GC_ERR_INVALID_ADDRESS;
    }
    const NQGevPlace place = row->In(NQGevText::Standard);
    if (place.access == NQGevAccess::ReadOnly)
    {
        return GenTL::GC_ERR_ACCESS_DENIED;
    }
    std::vector<unsigned char> value(place.length);
    unsigned long length = value.size();
    if (size != length)
    {
        const int result = port.read(row->address, value.data(), &length);
        if (result != GenTL::GC_ERR_SUCCESS)
        {
            return result;
        }
        length = value.size();
    }
    std::memcpy(value.data() + (address - place.address), buffer, size);
    return port.write(row->address, value.data(), &length);
}
