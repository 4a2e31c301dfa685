// SPDX-License-Identifier: Apache-2.0
// The one thread of the loopback: it waits for descriptors and deadlines and calls their handlers.
#pragma once

#include "base/settings.h"
#include "base/unique_fd.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

namespace nq::loopback
{

/// Something that the engine calls. Its operations run on the engine's thread, without any lock of the engine.
class Pollable : public std::enable_shared_from_this<Pollable>
{
  public:
    virtual ~Pollable() = default;

    /// `fd` is ready for `events` (EPOLLIN ...).
    virtual void OnReady(int fd, uint32_t events) = 0;

    /// A deadline has passed or the state of the link has changed: look at both again.
    virtual void OnTimer() {}

    /// The connection is to end as if the peer had died. Runs on the thread that asks for it.
    virtual void OnBreak() {}
};

/// Starts its thread when first used and lives until the process ends. All operations may be called on any thread.
class Engine
{
  public:
    static Engine& Instance();

    /// Registers a descriptor, with no events yet. The handler is not kept alive by this. Returns the key of the
    /// registration.
    uint64_t Register(int fd, const std::shared_ptr<Pollable>& handler);
    void Unregister(uint64_t key);

    /// Changes the events that a registered descriptor is watched for; `before` is what it is watched for now. With
    /// none the descriptor is not even watched for the end of its stream.
    void Watch(uint64_t key, int fd, uint32_t before, uint32_t events);

    /// Calls OnTimer of `handler`, if it still lives, at `when`.
    void CallAt(Clock::time_point when, const std::shared_ptr<Pollable>& handler);

    /// Calls OnTimer of every handler with a registered descriptor, on the engine's thread.
    void CallAll();

    /// Calls OnBreak of every handler with a registered descriptor, on this thread.
    void BreakAll();

    /// Waits for the next descriptor or deadline, at most `longest` milliseconds unless that is negative, and calls the
    /// handlers. How many descriptors were ready. For the thread of the engine alone.
    int Turn(int longest);

  private:
    struct Registration
    {
        int fd;
        std::weak_ptr<Pollable> handler;
    };

    Engine();
    static void ForgetInChild(); // It has no engine thread, and starts its own with the first object that it makes.
    void StartThread();
    void Wake() const;
    void Run();
    int MillisecondsToNextTimer();
    void RunTimers();
    void Dispatch(uint64_t key, uint32_t events);

    UniqueFd m_epoll;
    UniqueFd m_wake;
    std::mutex m_mutex;
    uint64_t m_lastKey = 0;
    std::map<uint64_t, Registration> m_registrations;
    std::multimap<Clock::time_point, std::weak_ptr<Pollable>> m_timers;
};

/// One descriptor registered with the engine, unregistered with the object. Guarded by its owner's lock.
class Watch
{
  public:
    Watch() = default;
    // NOLINTNEXTLINE(bugprone-exception-escape): taking a descriptor out of the set throws nothing.
    ~Watch() { Stop(); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    void Start(int fd, const std::shared_ptr<Pollable>& handler);
    void Want(uint32_t events);
    void Stop();

  private:
    int m_fd = -1;
    uint64_t m_key = 0;
    uint32_t m_events = 0;
};

} // namespace nq::loopback
