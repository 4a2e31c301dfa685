// SPDX-License-Identifier: Apache-2.0
// The order of the virtual operations of system and interface, which is the order of their virtual tables.
#include "gev/nq_gev_interface.h"
#include "gev/nq_gev_system.h"

#include <cstddef>
#include <cstring>
#include <gmock/gmock.h>
#include <vector>

using testing::ElementsAreArray;

namespace
{

/// Place of a virtual operation in the virtual table. Source: Itanium C++ ABI, member function pointers.
template <typename Member>
std::size_t Slot(Member member)
{
    std::size_t offset = 0;
    static_assert(sizeof member == 2 * sizeof offset);
    std::memcpy(&offset, &member, sizeof offset);
    return (offset - 1) / sizeof(void*);
}

/// Two destructors come first.
std::vector<std::size_t> FromTwoOn(std::size_t count)
{
    std::vector<std::size_t> slots;
    for (std::size_t slot = 2; slot < count + 2; ++slot)
    {
        slots.push_back(slot);
    }
    return slots;
}

/// The operations that every module has.
template <typename Module>
std::vector<std::size_t> CommonSlots()
{
    using Info = GigERDMA::_NQ_GENTL_PORT_INFO (Module::*)();
    using InfoCommand = int (Module::*)(int, int*, void*, unsigned long*);
    return {Slot(&Module::IsPortImplemented),
            Slot(&Module::IsEventImplemented),
            Slot(static_cast<Info>(&Module::GetPortInfo)),
            Slot(&Module::GetXMLInfo),
            Slot(&Module::GetURLList),
            Slot(&Module::ReadPort),
            Slot(&Module::WritePort),
            Slot(&Module::ReadPortStacked),
            Slot(&Module::WritePortStacked),
            Slot(&Module::GetPortURL),
            Slot(static_cast<InfoCommand>(&Module::GetPortInfo)),
            Slot(&Module::GetNumPortURLs),
            Slot(&Module::GetPortURLInfo),
            Slot(&Module::GetName),
            Slot(&Module::GetId),
            Slot(&Module::DoOpen),
            Slot(&Module::DoClose),
            Slot(&Module::GetInfo)};
}

} // namespace

TEST(ModuleSlots, TheOperationsOfTheSystemStandInTheirOrder)
{
    std::vector<std::size_t> slots = CommonSlots<NQGevSystem>();
    for (const std::size_t slot : {Slot(&NQGevSystem::UpdateInterfaceList), Slot(&NQGevSystem::GetNumInterfaces),
                                   Slot(&NQGevSystem::GetInterfaceID), Slot(&NQGevSystem::GetInterfaceInfo),
                                   Slot(&NQGevSystem::OpenInterface), Slot(&NQGevSystem::CloseInterface)})
    {
        slots.push_back(slot);
    }
    EXPECT_THAT(slots, ElementsAreArray(FromTwoOn(24)));
}

TEST(ModuleSlots, TheOperationsOfTheInterfaceStandInTheirOrder)
{
    std::vector<std::size_t> slots = CommonSlots<NQGevInterface>();
    for (const std::size_t slot : {Slot(&NQGevInterface::GetNumDevices), Slot(&NQGevInterface::GetDeviceID),
                                   Slot(&NQGevInterface::UpdateDeviceList), Slot(&NQGevInterface::GetDeviceInfo),
                                   Slot(&NQGevInterface::OpenDevice), Slot(&NQGevInterface::CloseDevice)})
    {
        slots.push_back(slot);
    }
    EXPECT_THAT(slots, ElementsAreArray(FromTwoOn(24)));
}
