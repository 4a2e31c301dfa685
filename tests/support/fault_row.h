// SPDX-License-Identifier: Apache-2.0
// One row of the table of faults: what is injected, what the application sees, when, and what comes after.
#pragma once

#include "support/stream_consumer.h"

#include "nq_gev_gentl.h"

#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace nq::test
{

/// A test whose row `./run faults` prints. The row is checked like every test: what it says has been seen.
class FaultRow : public testing::Test
{
  protected:
    static constexpr int kNoAccess = GenTL::DEVICE_ACCESS_STATUS_NOACCESS;

    void Fault(const std::string& name)
    {
        RecordProperty("fault", name);
        m_since = std::chrono::steady_clock::now();
    }

    /// Something the application sees, with the time since the fault when it saw it.
    void Sees(const std::string& what)
    {
        const auto passed = std::chrono::steady_clock::now() - m_since;
        const auto tenths = std::chrono::duration_cast<std::chrono::milliseconds>(passed).count() / 100;
        m_sees += (m_sees.empty() ? "" : "; ") + what;
        m_times +=
            (m_times.empty() ? "" : "; ") + std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
        RecordProperty("sees", m_sees);
        RecordProperty("after", m_times);
    }

    /// Takes whole frames from a start to a stop with what the consumer has.
    void NextWorks(Consumer& consumer, const std::string& how)
    {
        ExpectAWholeRun(consumer);
        RecordProperty("next", (HasFailure() ? "FAILS " : "works ") + how);
    }

    /// The same after everything was opened anew.
    void NextWorksInANewSession()
    {
        Consumer consumer;
        ASSERT_NE(consumer.stream, nullptr);
        consumer.AnnounceAndQueue(3);
        NextWorks(consumer, "after a reopen");
    }

    /// Takes frames until none has come for a second.
    static void Drain(Consumer& consumer)
    {
        while (const GenTL::BUFFER_HANDLE buffer = consumer.Next(1000))
        {
            ASSERT_TRUE(consumer.ShowsItsFrame(buffer));
            consumer.gentl.DSQueueBuffer(consumer.stream, buffer);
        }
    }

    std::chrono::steady_clock::time_point Since() const { return m_since; }

  private:
    std::string m_sees;
    std::string m_times;
    std::chrono::steady_clock::time_point m_since;
};

/// The changes of a camera's access status that a consumer is told.
class ConnectionEvents
{
  public:
    explicit ConnectionEvents(Consumer& consumer) : m_consumer(consumer)
    {
        EXPECT_EQ(consumer.gentl.GCRegisterEvent(consumer.device, GenTL::NQ_EVENT_DEVICE_CONNECTION, &m_event), 0);
    }

    /// Waits for the next change; nothing when there is none in time.
    std::optional<int> Next(std::chrono::milliseconds timeout)
    {
        char record[260] = {};
        std::size_t size = sizeof record;
        const auto wait = static_cast<std::uint64_t>(timeout.count());
        if (m_consumer.gentl.EventGetData(m_event, record, &size, wait) != 0)
        {
            return std::nullopt;
        }
        int status = 0;
        std::memcpy(&status, record, sizeof status);
        return status;
    }

    /// Waits for this status, past others; false when it does not come in 30 s.
    bool Await(int status)
    {
        std::optional<int> next;
        do
        {
            next = Next(std::chrono::seconds(30));
        } while (next && *next != status);
        return next.has_value();
    }

  private:
    Consumer& m_consumer;
    void* m_event = nullptr;
};

} // namespace nq::test
