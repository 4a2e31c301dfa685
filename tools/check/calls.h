// SPDX-License-Identifier: Apache-2.0
// The functions of the producer under test. Each call is noted as a line of C before it is made, and its result behind.
#pragma once

#include "GenTL/GenTL.h"
#include "GenTL/GenTLFunctions.h"
#include "notes.h"

#include <string>
#include <vector>

namespace nq::check
{

template <class Function>
class Call;

/// One function of the producer. Callable from several threads at once.
template <class... Arguments>
class Call<GenTL::GC_ERROR (*)(Arguments...)>
{
  public:
    using Pointer = GenTL::GC_ERROR (*)(Arguments...);

    void Set(const char* name, void* address)
    {
        m_name = name;
        m_function = reinterpret_cast<Pointer>(address);
    }
    explicit operator bool() const { return m_function != nullptr; }

    /// Throws RuleEnded where the producer lacks the function.
    GenTL::GC_ERROR operator()(Arguments... arguments) const
    {
        if (m_function == nullptr)
        {
            ThrowMissing(m_name);
        }
        Note note(m_name);
        (note.Argument(arguments), ...);
        note.Begin();
        const GenTL::GC_ERROR code = m_function(arguments...);
        note.End(code);
        return code;
    }

  private:
    const char* m_name = "";
    Pointer m_function = nullptr;
};

/// All functions of one loaded library.
struct Producer
{
#define NQ_DECLARE_CALL(Name) Call<GenTL::P##Name> Name; // NOLINT(bugprone-macro-parentheses): a name, no expression
    GENTL_FUNCTIONS(NQ_DECLARE_CALL)
#undef NQ_DECLARE_CALL

    /// Takes the functions of a library from dlopen(). The names of those that it lacks.
    std::vector<std::string> Resolve(void* library);
};

} // namespace nq::check
