// SPDX-License-Identifier: Apache-2.0
// The call frame that all exported GenTL functions share.
#pragma once

#include "base/nq_trace.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace GigERDMA
{
class NQGenTLDataStream;
class NQGenTLDevice;
class NQGenTLEvent;
class NQGenTLInterface;
class NQGenTLModuleBase;
class NQGenTLSystem;
} // namespace GigERDMA

/// One call of an exported function:
///
///     NQGevEntryFrame frame(__func__);
///     frame.TraceEntry("%s Entry hTL:0x%x", Low32(hTL));
///     if (auto* system = frame.FindSystem(hTL))
///     {
///         frame.Finish(system->GetNumInterfaces(piNumIfaces));
///     }
///     return frame.TraceExit("%s Exit hTL:0x%x ret:%d", Low32(hTL));
///
/// A call that is refused, because the library is not initialised or the handle is not valid, has its result set,
/// traced and recorded as the thread's last error; then the operation is left out and no exit line follows. The first
/// "%s" of every format takes the function's name. The frame takes no lock and never translates a code. Reentrant:
/// each call has a frame of its own.
class NQGevEntryFrame
{
  public:
    explicit NQGevEntryFrame(const char* name) : m_name(name) {}
    ~NQGevEntryFrame();
    NQGevEntryFrame(const NQGevEntryFrame&) = delete;
    NQGevEntryFrame& operator=(const NQGevEntryFrame&) = delete;

    template <class... Arguments>
    void TraceEntry(const char* format, Arguments... arguments) const
    {
        NQTrace(NQTraceLevel::CallFlow, format, m_name, arguments...);
    }

    /// False refuses the call with GC_ERR_NOT_INITIALIZED.
    bool IsInitialized();

    // The object behind a handle. Null refuses the call, with GC_ERR_NOT_INITIALIZED or GC_ERR_INVALID_HANDLE.

    GigERDMA::NQGenTLSystem* FindSystem(void* hTL);
    GigERDMA::NQGenTLInterface* FindInterface(void* hIface);
    GigERDMA::NQGenTLDevice* FindDevice(void* hDevice);
    GigERDMA::NQGenTLDataStream* FindDataStream(void* hDataStream);
    GigERDMA::NQGenTLEvent* FindEvent(void* hEvent);

    /// False refuses the call, with GC_ERR_NOT_INITIALIZED or GC_ERR_INVALID_PARAMETER.
    bool HasOutput(void** output);

    /// Refuses the call for a reason of its own, with a line that tells it.
    template <class... Arguments>
    void Refuse(int code, const char* format, Arguments... arguments)
    {
        NQTrace(NQTraceLevel::Failure, format, m_name, arguments...);
        Record(code);
    }

    /// Makes a failure the call's result and the thread's last error, without a line.
    void Record(int code);

    /// What a function makes of failures that others trace at level 2 and record.
    enum class Failures
    {
        Recorded,
        TimeoutsExpected,   ///< a timeout is traced as an expected condition
        TimeoutsUnrecorded, ///< and is not recorded either
        Unrecorded          ///< none is recorded: reading the last error never overwrites it
    };

    /// Takes the operation's result; a failure is traced, and recorded as the thread's last error.
    void Finish(int result, Failures failures = Failures::Recorded);

    /// Traces the exit line of a call that was not refused, with the result as its last argument, and gives the result.
    template <class... Arguments>
    int TraceExit(const char* format, Arguments... arguments) const
    {
        if (m_finished)
        {
            NQTrace(NQTraceLevel::CallFlow, format, m_name, arguments..., m_result);
        }
        return m_result;
    }

    int Result() const { return m_result; }

  private:
    template <class Object>
    Object* Known(Object* object, const char* refusal);
    template <class Module>
    Module* FindModule(GigERDMA::NQGenTLModuleBase* (*lookup)(void*), void* handle);

    const char* const m_name;
    GigERDMA::NQGenTLEvent* m_entered = nullptr; ///< The event that this call keeps from being deleted.
    int m_result = 0;
    bool m_finished = false;
};

/// What "0x%x" prints of a handle: its lower 32 bits.
inline unsigned int Low32(const void* handle)
{
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(handle));
}

/// The handle that an output pointer refers to, null without one.
inline void* HandleAt(void* const* output)
{
    return output != nullptr ? *output : nullptr;
}

/// What "%s" prints of an input text.
inline const char* TextOrEmpty(const char* text)
{
    return text != nullptr ? text : "";
}

/// How many bytes of an output text a trace line may read: 0 while nobody traces, and while the library is not
/// initialised, when nothing that the consumer points to is looked at.
std::size_t TracedSpace(const std::size_t* piSize);

/// What "%s" prints of an output text of `space` bytes, which need not be terminated. Empty while nobody traces.
std::string OutputText(const char* text, std::size_t space, const char* ifNull);
