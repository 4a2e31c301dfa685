// SPDX-License-Identifier: Apache-2.0
// What a rule has while it is tried: the producer, the camera that was chosen, and a place for what it finds.
#pragma once

#include "calls.h"
#include "record.h"

#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>

namespace nq::check
{

/// Ends a rule before its end. Thrown by Context and by calls of functions that the producer lacks.
struct RuleEnded
{
    Outcome outcome;
    std::string reason;
};

/// What is tried.
struct Target
{
    std::string path;
    std::string interfaceId; ///< of the camera; empty without one
    std::string deviceId;    ///< of the camera; empty without one
    std::string disturb;     ///< a shell command that makes the camera send a frame that is not whole; may be empty
};

class Context
{
  public:
    Context(Producer& producer, const Target& chosen) : gentl(producer), target(chosen) {}

    Producer& gentl;
    const Target& target;

    /// The rule is broken unless `kept`. `what` says what was to be, and what was. From several threads.
    void Expect(bool kept, std::string_view what);

    /// A call has to give one of `wanted`. `what` names the call and its state.
    bool Code(GenTL::GC_ERROR got, std::initializer_list<GenTL::GC_ERROR> wanted, std::string_view what);

    /// A call has to succeed, or the rule ends here as broken.
    void Require(GenTL::GC_ERROR got, std::string_view what);

    /// What the rule needs but is not about has to succeed, or the rule ends here as not tried.
    static void Needs(GenTL::GC_ERROR got, std::string_view what);
    [[noreturn]] static void NotTried(const std::string& reason);

    /// True when nothing broken was found yet.
    bool Kept() const { return m_findings.empty(); }
    const std::string& Findings() const { return m_findings; }

  private:
    std::mutex m_mutex;
    std::string m_findings;
    int m_count = 0;
};

} // namespace nq::check
