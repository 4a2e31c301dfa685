// SPDX-License-Identifier: Apache-2.0
// The order of the virtual operations of each abstract class, which binary compatibility rests on.
#include "gentl/nq_gentl_controller.h"
#include "gentl/nq_gentl_data_stream.h"
#include "gentl/nq_gentl_device.h"
#include "gentl/nq_gentl_event.h"
#include "gentl/nq_gentl_interface.h"
#include "gentl/nq_gentl_message_stream.h"
#include "gentl/nq_gentl_remote_device.h"
#include "gentl/nq_gentl_system.h"
#include "gentl/nq_gentl_thread_base.h"
#include "gentl/nq_gentl_thread_heartbeat.h"
#include "gentl/nq_gentl_thread_message_receiver.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <cstring>
#include <vector>

using namespace GigERDMA;
using testing::ElementsAre;

namespace
{

/// The index into the table of virtual functions, by the Itanium C++ ABI: a pointer to a virtual member function holds
/// one more than its offset in bytes. -1 for a function that is not virtual.
template <class Function>
std::ptrdiff_t Slot(Function function)
{
    std::ptrdiff_t address = 0;
    std::memcpy(&address, &function, sizeof(address));
    return address % 2 != 0 ? (address - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)) : -1;
}

template <class... Functions>
std::vector<std::ptrdiff_t> Slots(Functions... functions)
{
    return {Slot(functions)...};
}

// The destructor takes the slots 0 and 1 where it comes first.

TEST(VirtualSlots, OfTheModuleBase)
{
    using Base = NQGenTLModuleBase;
    EXPECT_THAT(
        Slots(&Base::IsPortImplemented, &Base::IsEventImplemented,
              static_cast<_NQ_GENTL_PORT_INFO (Base::*)()>(&Base::GetPortInfo), &Base::GetXMLInfo, &Base::GetURLList,
              &Base::ReadPort, &Base::WritePort, &Base::ReadPortStacked, &Base::WritePortStacked, &Base::GetPortURL,
              static_cast<int (Base::*)(int, int*, void*, unsigned long*)>(&Base::GetPortInfo), &Base::GetNumPortURLs,
              &Base::GetPortURLInfo, &Base::GetName, &Base::GetId, &Base::DoOpen, &Base::DoClose),
        ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18));
}

TEST(VirtualSlots, EachKindOfModuleAppendsItsOwnBehindTheBase)
{
    EXPECT_THAT(Slots(&NQGenTLSystem::GetInfo, &NQGenTLSystem::UpdateInterfaceList, &NQGenTLSystem::GetNumInterfaces,
                      &NQGenTLSystem::GetInterfaceID, &NQGenTLSystem::GetInterfaceInfo, &NQGenTLSystem::OpenInterface,
                      &NQGenTLSystem::CloseInterface),
                ElementsAre(19, 20, 21, 22, 23, 24, 25));
    EXPECT_THAT(Slots(&NQGenTLInterface::GetInfo, &NQGenTLInterface::GetNumDevices, &NQGenTLInterface::GetDeviceID,
                      &NQGenTLInterface::UpdateDeviceList, &NQGenTLInterface::GetDeviceInfo,
                      &NQGenTLInterface::OpenDevice, &NQGenTLInterface::CloseDevice),
                ElementsAre(19, 20, 21, 22, 23, 24, 25));
    EXPECT_THAT(Slots(&NQGenTLDevice::GetInfo, &NQGenTLDevice::GetPort, &NQGenTLDevice::GetNumDataStreams,
                      &NQGenTLDevice::GetDataStreamID, &NQGenTLDevice::OpenDataStream),
                ElementsAre(19, 20, 21, 22, 23));
    EXPECT_THAT(Slots(&NQGenTLRemoteDevice::GetStreamChannelCount, &NQGenTLRemoteDevice::GetMessageChannelCount,
                      &NQGenTLRemoteDevice::EnableStream),
                ElementsAre(19, 20, 21));
    EXPECT_THAT(Slots(&NQGenTLDataStream::DoStartAcquisition, &NQGenTLDataStream::DoStopAcquisition,
                      &NQGenTLDataStream::DoRequeueBuffer, &NQGenTLDataStream::DoGetPayloadsize,
                      &NQGenTLDataStream::StartOfTransfer, &NQGenTLDataStream::SetTransferCompleted,
                      &NQGenTLDataStream::EndOfTransfer, &NQGenTLDataStream::DoHandOver, &NQGenTLDataStream::DoEndShow),
                ElementsAre(19, 20, 21, 22, 23, 24, 25, 26, 27));
}

TEST(VirtualSlots, OpeningAndClosingAreNotVirtual)
{
    EXPECT_THAT(Slots(&NQGenTLModuleBase::Open, &NQGenTLModuleBase::Close, &NQGenTLModuleBase::RegisterEvent,
                      &NQGenTLModuleBase::UnregisterEvent, &NQGenTLModuleBase::FindEventByHandle,
                      &NQGenTLModuleBase::FindEventById),
                testing::Each(-1));
    EXPECT_THAT(Slots(&NQGenTLDataStream::AnnounceBuffer, &NQGenTLDataStream::AllocAndAnnounceBuffer,
                      &NQGenTLDataStream::RevokeBuffer, &NQGenTLDataStream::QueueBuffer, &NQGenTLDataStream::FlushQueue,
                      &NQGenTLDataStream::StartAcquisition, &NQGenTLDataStream::StopAcquisition,
                      &NQGenTLDataStream::GetInfo),
                testing::Each(-1));
}

TEST(VirtualSlots, OfTheController)
{
    EXPECT_THAT(Slots(&NQGenTLController::CreateSystem, &NQGenTLController::DoInit, &NQGenTLController::DoClose),
                ElementsAre(2, 3, 4));
    EXPECT_THAT(Slots(&NQGenTLController::Init, &NQGenTLController::Close, &NQGenTLController::SetLastError),
                testing::Each(-1));
}

TEST(VirtualSlots, OfTheEvents)
{
    EXPECT_THAT(Slots(&NQGenTLEvent::DoEventGetData, &NQGenTLEvent::DoEventGetDataInfo, &NQGenTLEvent::DoFlushEntry),
                ElementsAre(2, 3, 4));
    EXPECT_THAT(Slots(&NQGenTLEvent::Signal, &NQGenTLEvent::Kill, &NQGenTLEvent::Flush, &NQGenTLEvent::GetData,
                      &NQGenTLEvent::GetDataInfo, &NQGenTLEvent::GetInfo),
                testing::Each(-1));
}

TEST(VirtualSlots, OfTheWorkers)
{
    EXPECT_THAT(Slots(&NQGenTLThreadBase::Start, &NQGenTLThreadBase::Run), ElementsAre(2, 3));
    EXPECT_THAT(Slots(&NQGenTLThreadBase::IsRunning, &NQGenTLThreadBase::Wait, &NQGenTLThreadBase::TimedWait),
                testing::Each(-1));
    EXPECT_THAT(Slots(static_cast<bool (NQGenTLThreadBase::*)()>(&NQGenTLThreadHeartbeat::Start),
                      &NQGenTLThreadHeartbeat::Run, &NQGenTLThreadHeartbeat::OnHeartBeat),
                ElementsAre(2, 3, 4));
    EXPECT_THAT(Slots(&NQGenTLThreadMessageReceiver::Start, &NQGenTLThreadMessageReceiver::Run), ElementsAre(2, 3));
    EXPECT_THAT(
        Slots(&NQGenTLMessageStream::OnInit, &NQGenTLMessageStream::OnDestroy, &NQGenTLMessageStream::OnGetMessage),
        ElementsAre(2, 3, 4));
}

} // namespace
