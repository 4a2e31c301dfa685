// SPDX-License-Identifier: Apache-2.0
// The choice of calls, and the rules that all of them share.
#include "fuzz/calls/caller.h"

#include <iterator>

namespace nq::fuzz
{
namespace
{

void Fail(const char* function, int result, int expected)
{
    std::fprintf(stderr, "%s gave %d, expected %d\n", function, result, expected);
    std::abort();
}

} // namespace

void Caller::Call()
{
    using Member = void (Caller::*)();
    static constexpr Member kCalls[] = {
#define NQ_LIST_CALL(name) &Caller::name,
        GENTL_FUNCTIONS(NQ_LIST_CALL)
#undef NQ_LIST_CALL
    };
    static_assert(std::size(kCalls) == 57);
    const unsigned char choice = m_input.Byte();
    const unsigned char mood = m_input.Byte();
    m_mood = mood < 208   ? FakeCamera::Mood::Helpful
             : mood < 224 ? FakeCamera::Mood::Refusing
                          : FakeCamera::Mood::Silent;
    m_camera.SetMood(m_mood);
    (this->*kCalls[choice % std::size(kCalls)])();
    m_camera.SetMood(FakeCamera::Mood::Helpful);
}

void Caller::Finish()
{
    if (m_model.initialised)
    {
        Expect("GCCloseLib", GenTL::GCCloseLib(), 0);
        m_model.Close();
    }
}

void Caller::Expect(const char* function, int result, int expected)
{
    if (result != expected)
    {
        Fail(function, result, expected);
    }
    if (result != 0)
    {
        Model::LastError() = result;
    }
}

bool Caller::Reaches(const char* function, int result, bool found)
{
    if (!m_model.initialised || !found)
    {
        Expect(function, result, m_model.initialised ? -1006 : -1002);
        return false;
    }
    return true;
}

void Caller::ExpectInfo(const char* function, int result, const InfoArguments& info, int otherwise)
{
    if (otherwise != 0)
    {
        Expect(function, result, otherwise);
        return;
    }
    const bool fits = info.buffer == nullptr || info.size <= info.space;
    Expect(function, result, fits ? 0 : -1016);
    Require(info.type != 0 || info.typePointer == nullptr, "an answer has a type");
}

void Caller::ExpectParent(const char* function, int result, void* handle, Kind kind, void* const* output)
{
    if (m_model.initialised && output == nullptr)
    {
        Expect(function, result, -1009);
        return;
    }
    const Module* const module = m_model.Find(handle, kind);
    if (Reaches(function, result, module != nullptr))
    {
        Expect(function, result, 0);
        Require(*output == module->parent->handle, "the parent's handle");
    }
}

const char* Caller::Id(const char* right)
{
    switch (m_input.Below(16))
    {
    case 0:
        return nullptr;
    case 1:
        return "";
    case 2:
        return "nothing of that name";
    default:
        return right;
    }
}

} // namespace nq::fuzz
