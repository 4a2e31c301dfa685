// SPDX-License-Identifier: Apache-2.0
// Calls as lines of C, which are what a report shows of a failure and what --repro makes a program of.
#pragma once

#include "GenTL/GenTL.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nq::check
{

/// One call on its way. Arguments are added in order; handles that came out of earlier calls are written by their
/// index.
class Note
{
  public:
    explicit Note(const char* function) : m_function(function), m_line(std::string("g.") + function + "(") {}

    void Argument(void* handleOrMemory);
    void Argument(const void* memory) { Argument(const_cast<void*>(memory)); }
    void Argument(void** out);
    void Argument(size_t* inOut);
    void Argument(char* memory) { Argument(static_cast<void*>(memory)); }
    void Argument(const char* text);
    void Argument(int32_t number) { Add(std::to_string(number)); }
    void Argument(uint32_t number) { Add(std::to_string(number)); }
    void Argument(uint64_t number);
    void Argument(int32_t* out) { Add(out == nullptr ? "NULL" : "&number"); }
    void Argument(uint32_t* out) { Add(out == nullptr ? "NULL" : "&count"); }
    void Argument(bool* out) { Add(out == nullptr ? "NULL" : "&flag"); }
    void Argument(GenTL::PORT_REGISTER_STACK_ENTRY* entries) { Argument(static_cast<void*>(entries)); }
    void Argument(GenTL::SINGLE_CHUNK_DATA* chunks) { Argument(static_cast<void*>(chunks)); }

    void Begin();
    void End(GenTL::GC_ERROR code);

  private:
    void Add(const std::string& argument);

    const char* m_function;
    std::string m_line;
    std::vector<std::pair<void**, size_t>> m_outs; ///< with their index in the C lines
    size_t m_number = 0;
};

/// Adds a line of C that is no call, for example what fills a buffer that is written to a port.
void NoteLine(const std::string& line);

/// What fills the memory at `to`, as a line.
void NoteBytes(const void* to, const void* bytes, size_t size);

/// Forgets the lines and handles of the rule before.
void ForgetNotes();

/// The function that the calling thread is in, or null. For a signal handler.
const char* FunctionOfThisThread();

/// Says what the calling thread is in, where that is no GenTL function; null for nothing.
void SetFunctionOfThisThread(const char* name);

[[noreturn]] void ThrowMissing(const char* function);

} // namespace nq::check
