// SPDX-License-Identifier: Apache-2.0
// Access to the fake logging library, and the trace of the library under test through it.
#pragma once

#include "support/producer.h"

#include <string>
#include <vector>

namespace nq::test
{

/// Keeps a fake logging library loaded, so that a dlopen of "libNQLogLinux.so.1" anywhere in the process finds it.
class FakeLogger
{
  public:
    /// Throws std::runtime_error when the file does not load.
    explicit FakeLogger(const std::string& path = NQ_FAKE_LOGGER_PATH);
    ~FakeLogger();
    FakeLogger(const FakeLogger&) = delete;
    FakeLogger& operator=(const FakeLogger&) = delete;

    /// Gives this object's reference back; the library goes once the code under test has given back its own.
    void LetGo();

    /// What NQLInit of the fake answers; true from the start.
    void SetInitResult(bool result) const;

    /// While `hold` is in force, whoever traces stays inside the library.
    void HoldTraces(bool hold) const;

    /// Returns once that many threads are held.
    void AwaitHeld(unsigned int count) const;

    /// All lines so far. A trace line reads "<module> <level> <text>", any other call "call <name> <arguments>".
    std::vector<std::string> Lines() const;
    void Clear() const;

    /// Address of one of the fake's functions.
    void* Find(const char* symbol) const;

  private:
    void* m_library;
};

/// Opens the exported logger of a producer on a fake logging library and gives what it traces.
class ProducerTrace
{
  public:
    /// Throws std::runtime_error when the logger does not open. Makes one call of GCGetLastError, so that the logger is
    /// constructed; before GCInitLib that sets the thread's last error to -1002.
    explicit ProducerTrace(const Producer& producer);
    ~ProducerTrace();
    ProducerTrace(const ProducerTrace&) = delete;
    ProducerTrace& operator=(const ProducerTrace&) = delete;

    /// The lines since the last call of Take, or since the start.
    std::vector<std::string> Take();

  private:
    const Producer& m_producer;
    FakeLogger m_fake;
};

/// How the library prints a handle: its lower 32 bits, hexadecimal.
std::string Shown(const void* handle);

} // namespace nq::test
