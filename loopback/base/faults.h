// SPDX-License-Identifier: Apache-2.0
// Faults by name: which call of which function fails, waits, breaks the link or sees another event.
#pragma once

#include <atomic>
#include <chrono>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace nq::loopback
{

/// The faults asked for, and the count of calls that they are measured by. Used by every exported function. All
/// threads.
class Faults
{
  public:
    static Faults& Instance();

    /// Adds every entry of `text`, "name:calls:action" separated by commas, or none when one of them is malformed.
    /// `calls` is N (the Nth call from now), N+ (that one and all later) or * (all). `action` is an errno name or
    /// number, "delay=MS", "link=up", "link=down", "link=break" or, for rdma_get_cm_event, "event=RDMA_CM_EVENT_NAME".
    /// False when malformed.
    bool Add(const std::string& text);

    /// Forgets all faults.
    void Clear();

    /// Counts one call of `name` and carries out what is asked for it; waits for a delay. The errno to fail with, or 0.
    int Hit(const char* name);

    /// Counts one delivered event. The event type to show instead of the true one, if one is asked for.
    std::optional<int> SubstituteEvent();

    /// Time from a send's post to its transmission.
    std::chrono::milliseconds MessageDelay() const { return std::chrono::milliseconds(m_messageDelay.load()); }
    void SetMessageDelay(std::chrono::milliseconds delay) { m_messageDelay = delay.count(); }

  private:
    enum class Action
    {
        Fail,
        Delay,
        Link,
        Event
    };

    struct Fault
    {
        std::string name;
        unsigned long first = 1;
        bool repeats = false;
        Action action = Action::Fail;
        int value = 0;
        unsigned long calls = 0;
    };

    Faults();
    static std::optional<Fault> Parse(const std::string& entry);
    static bool ParseAction(const std::string& text, Fault& fault);
    static bool Due(Fault& fault);

    std::atomic<bool> m_any{false};
    std::atomic<long long> m_messageDelay{0};
    std::mutex m_mutex;
    std::list<Fault> m_faults;
};

/// Whether the RDMA link of this process carries messages.
bool LinkIsUp();

/// Lets the link carry messages, or stall them.
void SetLink(bool up);

/// Ends every connection of this process as if its peer had died.
void BreakLink();

} // namespace nq::loopback
