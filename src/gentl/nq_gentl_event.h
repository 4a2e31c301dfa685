// SPDX-License-Identifier: Apache-2.0
// The base of the GenTL events: a queue of occurrences that a consumer waits on.
#pragma once

#include "base/nq_fork.h"
#include "gentl/nq_event_handler.h"
#include "gentl/nq_gentl_event_data_queue.h"

#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

struct NQAnswers;

namespace GigERDMA
{

/// An event lives from its registration on a module until it is unregistered or the module goes; its address is the
/// handle the consumer holds. Producers hand entries in with Signal, consumers take them out with GetData.
///
///     signal     no bit               bit 0, no kill bit          kill bits
///     GetData    sleeps               takes an entry at once      aborts at once; the bits stay
///
/// A kill that wakes a sleeping GetData is used up by it; one that comes while nobody sleeps stays until Flush.
/// With the standard's answers each kill ends one GetData, the next if none sleeps, and Flush takes none back.
/// Thread-safe. The module deletes the event only when nobody is inside GetData. Results are GenTL codes, sizes are in
/// bytes.
///
/// What nobody fetches is kept, up to a limit that only guards the machine: see Signal.
///
/// An event owns the entry from Signal until DoEventGetData has freed it, unless its subclass says otherwise.
class NQGenTLEvent
{
  public:
    /// More than 1 GiB of records that nobody fetched would end the machine before the application.
    static constexpr unsigned long kMostPendingBytes = 1UL << 30;

    /// Keeps no more pending entries than fill `mostPendingBytes` with what they deliver.
    explicit NQGenTLEvent(int id, unsigned long mostPendingBytes = kMostPendingBytes);

    /// Kills the signal. Entries still in the queue are left as they are.
    virtual ~NQGenTLEvent();
    NQGenTLEvent(const NQGenTLEvent&) = delete;
    NQGenTLEvent& operator=(const NQGenTLEvent&) = delete;

    /// Delivers `entry` to `pBuffer`, which may be null and is otherwise big enough, and gives the entry up.
    virtual void DoEventGetData(void* entry, void* pBuffer, unsigned long* piSize) = 0;

    /// Answers one event data info command on a record as DoEventGetData delivered it. GC_ERR_NOT_IMPLEMENTED for any
    /// other command, GC_ERR_BUFFER_TOO_SMALL.
    virtual int DoEventGetDataInfo(const void* pInBuffer, int iInfoCmd, int* piType, void* pOutBuffer,
                                   unsigned long* piOutSize) = 0;

    /// Gets an entry that is not delivered back into a clean state. Nothing to do here.
    virtual void DoFlushEntry(void* entry);

    int GetEventId() const { return m_id; }

    /// Gives `answers`, which outlive the event, instead of the library's own. Before anybody else knows the event.
    void UseAnswers(const NQAnswers& answers) { m_answers = &answers; }

    /// Between Enter and Leave an EndWaits waits. To be entered while the lock of the event's module is held, so that
    /// the event cannot go before.
    void Enter() { ++m_inside; }
    void Leave();

    /// For an event about to be deleted that nobody finds any more: with the standard's answers ends every GetData and
    /// returns when nobody is inside.
    void EndWaits();

    /// With the standard's answers ends every GetData that sleeps, and if there is none the next one that finds no
    /// entry; ForgetAbort takes the latter back.
    void Abort() { m_signal.EndSleeps(); }
    void ForgetAbort() { m_signal.ForgetEndSleeps(); }

    /// Number of pending entries.
    unsigned long GetNumInQueue();

    /// Appends the entry and wakes one waiting GetData. False when the pending entries fill the memory they may; the
    /// entry, this newest one, is then dropped and passed to DoFlushEntry. It is still the caller's then, and when
    /// Signal throws.
    bool Signal(void* entry);

    /// Takes an entry that is about to be deleted out of the queue, undelivered.
    void Withdraw(void* entry);

    /// Wakes a waiting GetData, or leaves a kill pending. Always 0.
    int Kill();

    /// Drops all pending entries and a pending kill. Always 0.
    int Flush();

    /// Waits for the oldest entry and delivers it. `iTimeout` is in milliseconds; its low 32 bits count, as a signed
    /// number: negative waits without limit. A null `pBuffer` loses the entry. GC_ERR_INVALID_PARAMETER for a null
    /// `piSize`, GC_ERR_BUFFER_TOO_SMALL (with the size needed), GC_ERR_TIMEOUT on a timeout, GC_ERR_ABORT when killed.
    int GetData(void* pBuffer, unsigned long* piSize, unsigned long iTimeout);

    /// Answers one event data info command on a record that GetData delivered; `*piOutSize` bytes of `pOutBuffer` are
    /// cleared first, and a null `pOutBuffer` asks for the size. GC_ERR_INVALID_PARAMETER for a null `piType` or
    /// `piOutSize` and for an `iInSize` of 0, which else is not looked at, GC_ERR_INVALID_HANDLE for a null
    /// `pInBuffer`; else as DoEventGetDataInfo.
    int GetDataInfo(const void* pInBuffer, unsigned long iInSize, int iInfoCmd, int* piType, void* pOutBuffer,
                    unsigned long* piOutSize);

    /// Answers one EVENT_INFO command; `*piSize` bytes of `pBuffer` are cleared first, and a null `pBuffer` asks for
    /// the size. GC_ERR_INVALID_PARAMETER for a null `piType` or `piSize`, GC_ERR_NOT_IMPLEMENTED for any other
    /// command, GC_ERR_BUFFER_TOO_SMALL.
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);

  protected:
    /// Size in bytes of the smallest buffer that GetData accepts, and of the greatest data value.
    void SetEventSizeMax(unsigned long size) { m_eventSizeMax = size; }
    void SetEventInfoDataSizeMax(unsigned long size) { m_infoDataSizeMax = size; }

    /// Delivers and deletes an entry that a producer made with `new Record`.
    template <typename Record>
    static void DeliverRecord(void* entry, void* pBuffer)
    {
        const std::unique_ptr<Record> record(static_cast<Record*>(entry));
        if (pBuffer != nullptr)
        {
            std::memcpy(pBuffer, record.get(), sizeof(Record));
        }
    }

    /// The text of a record's field, which need not be terminated.
    template <std::size_t Length>
    static std::string FieldText(const char (&field)[Length])
    {
        return std::string(field, strnlen(field, Length));
    }

  private:
    static constexpr unsigned int kDataBit = 1;

    std::optional<int> Fetch(void* pBuffer, unsigned long* piSize, int timeout);
    unsigned int WaitForData(int timeout);
    int GetNumFired(int* piType, void* pBuffer, unsigned long* piSize);
    int _validateEventGetDataParam(void* pBuffer, unsigned long* piSize);
    void FlushFront();
    bool DeliverFront(void* pBuffer, unsigned long* piSize);
    bool ResetIfEmpty() NQ_REQUIRES(m_pendingLock);

    const NQAnswers* m_answers;
    NQGenTLEventDataQueue m_queue;
    [[maybe_unused]] const bool m_bEnabled; ///< Read by nothing.
    const int m_id;
    const unsigned long m_mostPendingBytes;
    unsigned long m_fired = 0; ///< Entries that were ever queued; under the pending lock.
    unsigned long m_eventSizeMax = 0;
    unsigned long m_infoDataSizeMax = 0;
    NQEventHandler m_signal;
    const NQOrigin m_origin;
    std::atomic<int> m_inside = 0; ///< Calls between Enter and Leave.

    /// Held where the queue and bit 0 change together, so that an entry never waits behind a cleared bit, and while an
    /// entry is delivered, so that Withdraw ends behind it. Taken before the locks of both.
    NQGenTLMutex m_pendingLock;
};

} // namespace GigERDMA
