// SPDX-License-Identifier: Apache-2.0
// What a child process tells its parent: memory that both see, which survives a crash and needs no descriptor.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>

namespace nq::check
{

enum class Outcome : int
{
    None,     ///< not ended
    Passed,   ///< kept
    Failed,   ///< broken
    NotTried, ///< could not be tried; the text says why
};

/// A text in the shared memory that only grows, cut at its end. One writer at a time.
template <size_t Size>
class SharedText
{
  public:
    void Clear() { m_size = 0; }
    void Append(std::string_view text)
    {
        const size_t at = m_size;
        const size_t count = text.size() < Size - at ? text.size() : Size - at;
        text.copy(m_bytes + at, count);
        m_size = at + count;
    }
    std::string Text() const { return {m_bytes, m_size < Size ? m_size.load() : Size}; }
    bool Full() const { return m_size >= Size; }

  private:
    std::atomic<size_t> m_size;
    char m_bytes[Size];
};

constexpr size_t kMostRules = 64;
constexpr size_t kMostThreads = 64;

/// Lies in anonymous shared memory, all zero at first.
struct Record
{
    struct Result
    {
        std::atomic<Outcome> outcome;
        SharedText<3000> text;
        std::atomic<double> seconds;
    };

    std::atomic<size_t> rule;                     ///< index of the rule at work, or of the one that comes next
    std::atomic<size_t> begun;                    ///< calls of the producer so far
    std::atomic<bool> ended;                      ///< the child has come to its end by itself
    std::atomic<const char*> calls[kMostThreads]; ///< the function that each thread is in; a text of the program
    std::atomic<const char*> died;                ///< the function of the thread that a signal met
    Result results[kMostRules];
    SharedText<size_t{256} << 10> lines; ///< the calls of the rule at work, in C
    SharedText<8000> backtrace;
};

/// The record of this process, where Call writes to.
Record*& CurrentRecord();

/// The functions that the threads of a child are in: "DSRevokeBuffer", or "EventGetData, DSClose".
std::string CallsIn(const Record& record);

} // namespace nq::check
