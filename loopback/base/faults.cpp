// SPDX-License-Identifier: Apache-2.0
// Faults by name: which call of which function fails, waits, breaks the link or sees another event.
#include "base/faults.h"

#include "base/event_names.h"
#include "base/log.h"
#include "base/settings.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <thread>

namespace nq::loopback
{

namespace
{

constexpr int kLinkDown = 0;
constexpr int kLinkUp = 1;
constexpr int kLinkBreak = 2;

std::optional<int> ErrnoByName(const std::string& name)
{
    for (int code = 1; code < 134; ++code)
    {
        const char* known = strerrorname_np(code);
        if (known != nullptr && name == known)
        {
            return code;
        }
    }
    char* end = nullptr;
    const long number = std::strtol(name.c_str(), &end, 10);
    if (name.empty() || *end != '\0' || number <= 0 || number > 4095)
    {
        return std::nullopt;
    }
    return static_cast<int>(number);
}

std::optional<int> LinkByName(const std::string& name)
{
    if (name == "up")
    {
        return kLinkUp;
    }
    if (name == "down")
    {
        return kLinkDown;
    }
    return name == "break" ? std::optional<int>(kLinkBreak) : std::nullopt;
}

void SwitchLink(int how)
{
    if (how == kLinkBreak)
    {
        BreakLink();
    }
    else
    {
        SetLink(how == kLinkUp);
    }
}

} // namespace

Faults& Faults::Instance()
{
    static Faults& faults = *new Faults;
    return faults;
}

Faults::Faults()
{
    m_messageDelay = Settings::Get().messageDelay.count();
    if (!Settings::Get().failures.empty() && !Add(Settings::Get().failures))
    {
        Log("NQ_RDMA_LOOPBACK_FAIL is malformed and ignored: %s", Settings::Get().failures.c_str());
    }
}

bool Faults::ParseAction(const std::string& text, Fault& fault)
{
    const size_t equals = text.find('=');
    const std::string key = text.substr(0, equals);
    const std::string value = equals == std::string::npos ? std::string() : text.substr(equals + 1);
    std::optional<int> number;
    if (equals == std::string::npos)
    {
        fault.action = Action::Fail;
        number = ErrnoByName(text);
    }
    else if (key == "delay")
    {
        fault.action = Action::Delay;
        char* end = nullptr;
        const long delay = std::strtol(value.c_str(), &end, 10);
        number = value.empty() || *end != '\0' || delay < 0 || delay > 3600000 ? std::nullopt
                                                                               : std::optional(static_cast<int>(delay));
    }
    else if (key == "link")
    {
        fault.action = Action::Link;
        number = LinkByName(value);
    }
    else if (key == "event" && fault.name == "rdma_get_cm_event")
    {
        fault.action = Action::Event;
        number = CmEventByName(value);
    }
    fault.value = number.value_or(0);
    return number.has_value();
}

std::optional<Faults::Fault> Faults::Parse(const std::string& entry)
{
    const size_t one = entry.find(':');
    const size_t two = one == std::string::npos ? one : entry.find(':', one + 1);
    if (two == std::string::npos || one == 0)
    {
        return std::nullopt;
    }
    Fault fault;
    fault.name = entry.substr(0, one);
    std::string calls = entry.substr(one + 1, two - one - 1);
    if (calls == "*")
    {
        calls = "1+";
    }
    if (!calls.empty() && calls.back() == '+')
    {
        fault.repeats = true;
        calls.pop_back();
    }
    char* end = nullptr;
    fault.first = std::strtoul(calls.c_str(), &end, 10);
    if (calls.empty() || *end != '\0' || fault.first == 0 || !ParseAction(entry.substr(two + 1), fault))
    {
        return std::nullopt;
    }
    return fault;
}

bool Faults::Add(const std::string& text)
{
    std::list<Fault> added;
    std::istringstream entries(text);
    for (std::string entry; std::getline(entries, entry, ',');)
    {
        const std::optional<Fault> fault = Parse(entry);
        if (!fault)
        {
            return false;
        }
        added.push_back(*fault);
    }
    const std::lock_guard lock(m_mutex);
    m_faults.splice(m_faults.end(), added);
    m_any.store(!m_faults.empty(), std::memory_order_relaxed);
    return true;
}

void Faults::Clear()
{
    const std::lock_guard lock(m_mutex);
    m_faults.clear();
    m_any.store(false, std::memory_order_relaxed);
}

bool Faults::Due(Fault& fault)
{
    ++fault.calls;
    return fault.calls == fault.first || (fault.repeats && fault.calls > fault.first);
}

int Faults::Hit(const char* name)
{
    if (!m_any.load(std::memory_order_relaxed))
    {
        return 0;
    }
    int error = 0;
    std::chrono::milliseconds delay{0};
    std::optional<int> link;
    {
        const std::lock_guard lock(m_mutex);
        for (Fault& fault : m_faults)
        {
            if (fault.action == Action::Event || fault.name != name || !Due(fault))
            {
                continue;
            }
            Log("fault: call %lu of %s", fault.calls, name);
            switch (fault.action)
            {
            case Action::Fail:
                error = fault.value;
                break;
            case Action::Delay:
                delay += std::chrono::milliseconds(fault.value);
                break;
            case Action::Link:
                link = fault.value;
                break;
            case Action::Event:
                break;
            }
        }
    }
    std::this_thread::sleep_for(delay);
    if (link)
    {
        SwitchLink(*link);
    }
    return error;
}

std::optional<int> Faults::SubstituteEvent()
{
    if (!m_any.load(std::memory_order_relaxed))
    {
        return std::nullopt;
    }
    const std::lock_guard lock(m_mutex);
    std::optional<int> event;
    for (Fault& fault : m_faults)
    {
        if (fault.action == Action::Event && Due(fault))
        {
            event = fault.value;
        }
    }
    return event;
}

} // namespace nq::loopback
