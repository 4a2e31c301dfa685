// SPDX-License-Identifier: Apache-2.0
// The five kinds of events: the bytes they deliver and the answers about a delivered record.
#include "gentl/nq_gentl_buffer.h"
#include "gentl/nq_gentl_event_device_connection.h"
#include "gentl/nq_gentl_event_error.h"
#include "gentl/nq_gentl_event_module.h"
#include "gentl/nq_gentl_event_new_buffer.h"
#include "gentl/nq_gentl_event_remote_device.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

using namespace GigERDMA;

namespace
{

struct Answer
{
    int result;
    int type = -1;
    std::string bytes;
};

Answer DataInfo(NQGenTLEvent& event, const std::vector<unsigned char>& record, int command)
{
    std::string out(2000, '\x55');
    int type = -1;
    unsigned long size = out.size();
    const int result = event.GetDataInfo(record.data(), record.size(), command, &type, out.data(), &size);
    if (result != 0)
    {
        return {result, type, {}};
    }
    return {result, type, out.substr(0, size)};
}

/// Signals a record of `size` bytes and takes it out again.
std::vector<unsigned char> Deliver(NQGenTLEvent& event, void* entry, std::size_t size)
{
    event.Signal(entry);
    std::vector<unsigned char> data(size + 1, 0x55);
    unsigned long space = data.size();
    EXPECT_EQ(event.GetData(data.data(), &space, 0), 0);
    EXPECT_EQ(space, size + 1) << "the size is left alone";
    EXPECT_EQ(data.back(), 0x55);
    data.pop_back();
    return data;
}

template <typename Record>
Record* NewRecord(const std::vector<unsigned char>& bytes)
{
    auto* record = new Record;
    EXPECT_EQ(sizeof(Record), bytes.size());
    std::memcpy(static_cast<void*>(record), bytes.data(), bytes.size());
    return record;
}

/// 0, 1, 2, ... behind the given bytes.
std::vector<unsigned char> Bytes(std::vector<unsigned char> head, std::size_t size)
{
    const auto used = static_cast<std::ptrdiff_t>(head.size());
    head.resize(size);
    std::iota(head.begin() + used, head.end(), static_cast<unsigned char>(0));
    return head;
}

std::vector<unsigned char> WithText(std::vector<unsigned char> head, const std::string& text, std::size_t size)
{
    head.insert(head.end(), text.begin(), text.end());
    head.resize(size);
    return head;
}

std::string Raw(const void* value, std::size_t size)
{
    return std::string(static_cast<const char*>(value), size);
}

template <typename Value>
std::string RawOf(Value value)
{
    return Raw(&value, sizeof value);
}

} // namespace

TEST(ErrorEvent, DeliversItsRecordByteForByte)
{
    NQGenTLEventError event;
    const auto bytes = WithText({0x17, 0xFC, 0xFF, 0xFF}, "GC_ERR_ERROR", 1028);
    EXPECT_EQ(Deliver(event, NewRecord<NQGenTLEventErrorRecord>(bytes), 1028), bytes);
}

TEST(ErrorEvent, AnswersAboutARecord)
{
    NQGenTLEventError event;
    const auto record = WithText({0x17, 0xFC, 0xFF, 0xFF}, "text", 1028); // -1001
    for (const int command : {0, 2})
    {
        const Answer code = DataInfo(event, record, command);
        EXPECT_EQ(code.type, 5);
        EXPECT_EQ(code.bytes, RawOf(-1001));
    }
    const Answer text = DataInfo(event, record, 1);
    EXPECT_EQ(text.type, 1);
    EXPECT_EQ(text.bytes, std::string("text\0", 5));
    EXPECT_EQ(DataInfo(event, record, 3).result, -1003);
    EXPECT_EQ(DataInfo(event, record, -1).result, -1003);
}

TEST(ErrorEvent, AnUnterminatedTextEndsWithItsField)
{
    NQGenTLEventError event;
    const std::vector<unsigned char> record(1028, 'x');
    EXPECT_EQ(DataInfo(event, record, 1).bytes.size(), 1025U);
}

TEST(DeviceConnectionEvent, DeliversItsRecordByteForByte)
{
    NQGenTLEventDeviceConnection event;
    const auto bytes = WithText({5, 0, 0, 0}, "Camera::1", 260);
    EXPECT_EQ(Deliver(event, NewRecord<NQGenTLEventDeviceConnectionRecord>(bytes), 260), bytes);
}

TEST(DeviceConnectionEvent, AnswersAboutARecord)
{
    NQGenTLEventDeviceConnection event;
    const auto record = WithText({3, 0, 0, 0}, "Camera::1", 260);
    for (const int command : {0, 2})
    {
        const Answer status = DataInfo(event, record, command);
        EXPECT_EQ(status.type, 5);
        EXPECT_EQ(status.bytes, RawOf(3));
    }
    const Answer text = DataInfo(event, record, 1);
    EXPECT_EQ(text.type, 1);
    EXPECT_EQ(text.bytes, std::string("Camera::1\0", 10));
    EXPECT_EQ(DataInfo(event, record, 3).result, -1003);
}

TEST(RemoteDeviceEvent, DeliversItsRecordByteForByte)
{
    NQGenTLEventRemoteDevice event;
    const auto bytes = Bytes({0xCD, 0xAB, 0, 0, 16, 0}, 546);
    EXPECT_EQ(Deliver(event, NewRecord<NQGenTLEventRemoteDeviceRecord>(bytes), 546), bytes);
}

TEST(RemoteDeviceEvent, TheIdIsAnEightDigitText)
{
    NQGenTLEventRemoteDevice event;
    const auto record = Bytes({0xCD, 0xAB, 0, 0, 16, 0}, 546);
    const Answer id = DataInfo(event, record, 0);
    EXPECT_EQ(id.type, 1);
    EXPECT_EQ(id.bytes, std::string("0000abcd\0", 9));
}

// Deliberate(WholeEventField): the length of the record does not shorten the value.
TEST(RemoteDeviceEvent, TheValueIsAlwaysThe540BytesOfTheField)
{
    NQGenTLEventRemoteDevice event;
    const auto record = Bytes({0xCD, 0xAB, 0, 0, 16, 0}, 546);
    const Answer value = DataInfo(event, record, 1);
    EXPECT_EQ(value.type, 13);
    EXPECT_EQ(value.bytes, Raw(record.data() + 6, 540));
}

TEST(RemoteDeviceEvent, TheNumericIdIsTheId)
{
    NQGenTLEventRemoteDevice event;
    const auto record = Bytes({0xCD, 0xAB, 0, 0, 16, 0}, 546);
    const Answer id = DataInfo(event, record, 2);
    EXPECT_EQ(id.type, 6);
    EXPECT_EQ(id.bytes, RawOf(0xABCDU));
    EXPECT_EQ(DataInfo(event, record, 3).result, -1003);
}

TEST(ModuleEvent, DeliversItsRecordByteForByte)
{
    NQGenTLEventModule event;
    const auto bytes = Bytes({8, 7, 6, 5, 4, 3, 2, 1}, 548);
    EXPECT_EQ(Deliver(event, NewRecord<NQGenTLEventModuleRecord>(bytes), 548), bytes);
}

TEST(ModuleEvent, AnswersAboutARecord)
{
    NQGenTLEventModule event;
    const auto record = Bytes({8, 7, 6, 5, 4, 3, 2, 1}, 548);
    for (const int command : {0, 2})
    {
        const Answer id = DataInfo(event, record, command);
        EXPECT_EQ(id.type, 8);
        EXPECT_EQ(id.bytes, RawOf(0x0102030405060708UL));
    }
    const Answer value = DataInfo(event, record, 1);
    EXPECT_EQ(value.type, 10);
    EXPECT_EQ(value.bytes, RawOf(record.data() + 8)) << "where the data lie in the consumer's record";
    EXPECT_EQ(DataInfo(event, record, 3).result, -1003);
}

TEST(HeapRecords, ANullBufferLosesTheRecordWithoutALeak)
{
    NQGenTLEventRemoteDevice event;
    event.Signal(new NQGenTLEventRemoteDeviceRecord{});
    unsigned long size = 0;
    EXPECT_EQ(event.GetData(nullptr, &size, 0), 0);
    EXPECT_EQ(event.GetData(nullptr, &size, 0), -1011);
}

// Deliberate(RecordsAreNotFreed): flushing does not free records.
TEST(HeapRecords, FlushedRecordsAreNotFreed)
{
    const auto record = std::make_unique<NQGenTLEventErrorRecord>();
    record->code = 7;
    NQGenTLEventError event;
    event.Signal(record.get());
    EXPECT_EQ(event.Flush(), 0);
    EXPECT_EQ(event.GetNumInQueue(), 0U);
    EXPECT_EQ(record->code, 7);
}

// Deliberate(RecordsAreNotFreed): neither does the end of the event.
TEST(HeapRecords, PendingRecordsAreNotFreedWithTheEvent)
{
    const auto record = std::make_unique<NQGenTLEventErrorRecord>();
    auto event = std::make_unique<NQGenTLEventError>();
    event->Signal(record.get());
    event.reset();
    record->code = 7;
}

/// How many times the event takes `entry` until it says no.
template <typename Entry>
unsigned long Pending(NQGenTLEvent&& event, Entry& entry)
{
    while (event.GetNumInQueue() < 1000 && event.Signal(&entry))
    {
    }
    EXPECT_FALSE(event.Signal(&entry));
    return event.GetNumInQueue();
}

TEST(PendingRecords, OfEveryKindFillTheMemoryTheyMayAndNoMore)
{
    NQGenTLEventErrorRecord error;
    NQGenTLEventRemoteDeviceRecord remote;
    NQGenTLEventModuleRecord module;
    NQGenTLEventDeviceConnectionRecord connection;
    NQGenTLBuffer buffer(nullptr, 4, false, nullptr, nullptr);
    EXPECT_EQ(Pending(NQGenTLEventError(4096), error), 3U);
    EXPECT_EQ(Pending(NQGenTLEventNewBuffer(4096), buffer), 256U);
    EXPECT_EQ(Pending(NQGenTLEventRemoteDevice(4096), remote), 7U);
    EXPECT_EQ(Pending(NQGenTLEventModule(4096), module), 7U);
    EXPECT_EQ(Pending(NQGenTLEventDeviceConnection(4096), connection), 15U);
}

TEST(PendingRecords, OfEveryKindMayFillOneGibibyte)
{
    // One entry, signalled as often as it takes: only the queue's own slots need memory.
    NQGenTLEventErrorRecord record;
    NQGenTLEventError event;
    for (unsigned long taken = 0; taken < 1044495; ++taken)
    {
        ASSERT_TRUE(event.Signal(&record)) << taken;
    }
    EXPECT_FALSE(event.Signal(&record));
}

TEST(NewBufferEvent, Delivers16BytesOfHandleAndUserPointer)
{
    NQGenTLEventNewBuffer event;
    char memory[4];
    int user = 0;
    NQGenTLBuffer buffer(memory, sizeof memory, false, &user, nullptr);
    buffer.SetQueueFlag(true);
    event.Signal(&buffer);
    unsigned char data[32];
    std::memset(data, 0x55, sizeof data);
    unsigned long size = sizeof data;
    EXPECT_EQ(event.GetData(data, &size, 0), 0);
    EXPECT_EQ(size, 16U);
    EXPECT_EQ(Raw(data, 8), RawOf(static_cast<void*>(buffer.GetModule())));
    EXPECT_EQ(Raw(data + 8, 8), RawOf(static_cast<void*>(&user)));
    EXPECT_EQ(data[16], 0x55);
    EXPECT_FALSE(buffer.IsQueued());
}

TEST(NewBufferEvent, ABufferOf15BytesIsRefusedBeforeAnyWaitAndConsumesNothing)
{
    NQGenTLEventNewBuffer event;
    NQGenTLBuffer buffer(nullptr, 4, false, nullptr, nullptr);
    buffer.SetQueueFlag(true);
    event.Signal(&buffer);
    char data[15];
    unsigned long size = sizeof data;
    EXPECT_EQ(event.GetData(data, &size, 0xFFFFFFFFFFFFFFFF), -1016);
    EXPECT_EQ(size, 16U);
    EXPECT_EQ(event.GetNumInQueue(), 1U);
    EXPECT_TRUE(buffer.IsQueued());
}

TEST(NewBufferEvent, ANullBufferStillEndsTheTimeAsQueued)
{
    NQGenTLEventNewBuffer event;
    NQGenTLBuffer buffer(nullptr, 4, false, nullptr, nullptr);
    buffer.SetQueueFlag(true);
    event.Signal(&buffer);
    unsigned long size = 3;
    EXPECT_EQ(event.GetData(nullptr, &size, 0), 0);
    EXPECT_EQ(size, 3U);
    EXPECT_FALSE(buffer.IsQueued());
}

TEST(NewBufferEvent, FlushLeavesEveryBufferReQueuable)
{
    NQGenTLEventNewBuffer event;
    NQGenTLBuffer first(nullptr, 4, false, nullptr, nullptr);
    NQGenTLBuffer second(nullptr, 4, false, nullptr, nullptr);
    for (NQGenTLBuffer* buffer : {&first, &second})
    {
        buffer->SetQueueFlag(true);
        event.Signal(buffer);
    }
    EXPECT_EQ(event.Flush(), 0);
    EXPECT_FALSE(first.IsQueued());
    EXPECT_FALSE(second.IsQueued());
}

TEST(NewBufferEvent, ANullEntryDoesNothing)
{
    NQGenTLEventNewBuffer event;
    unsigned long size = 16;
    event.DoFlushEntry(nullptr);
    char data[16] = {1};
    event.DoEventGetData(nullptr, data, &size);
    EXPECT_EQ(data[0], 1);
}

// Deliberate(BufferNumberIsItsAddress): the numeric id is the address of the record.
TEST(NewBufferEvent, TheNumericIdIsTheAddressOfTheRecord)
{
    NQGenTLEventNewBuffer event;
    const auto record = Bytes({}, 16);
    const Answer id = DataInfo(event, record, 2);
    EXPECT_EQ(id.type, 12);
    EXPECT_EQ(id.bytes, RawOf(record.data()));
}

TEST(NewBufferEvent, AnswersAboutARecord)
{
    NQGenTLEventNewBuffer event;
    const auto record = Bytes({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, 16);
    const Answer handle = DataInfo(event, record, 0);
    EXPECT_EQ(handle.type, 10);
    EXPECT_EQ(handle.bytes, Raw(record.data(), 8));
    const Answer user = DataInfo(event, record, 1);
    EXPECT_EQ(user.type, 10);
    EXPECT_EQ(user.bytes, Raw(record.data() + 8, 8));
    EXPECT_EQ(DataInfo(event, record, 3).result, -1003);
}
