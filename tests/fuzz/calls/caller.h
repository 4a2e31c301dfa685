// SPDX-License-Identifier: Apache-2.0
// Calls each of the 57 functions with arguments of the input's choice and compares what comes back with the model.
#pragma once

#include "GenTL/GenTL.h"
#include "GenTL/GenTLFunctions.h"
#include "fuzz/calls/model.h"
#include "fuzz/fake_camera.h"

#include <initializer_list>

namespace nq::fuzz
{

/// The usual arguments of an info call. The buffer is exactly as large as its size.
struct InfoArguments
{
    explicit InfoArguments(FuzzInput& input, std::initializer_list<int> commands)
    {
        const std::size_t choice = input.Below(commands.size() + 2);
        command = choice < commands.size() ? commands.begin()[choice] : input.Byte() - 2;
        const unsigned char nulls = input.Byte();
        space = (nulls & 0x40) != 0 ? input.Below(16) : 300;
        size = space;
        memory = std::make_unique<unsigned char[]>(space);
        typePointer = (nulls & 0x07) == 1 ? nullptr : &type;
        sizePointer = (nulls & 0x38) == 8 ? nullptr : &size;
        buffer = (nulls & 0x80) != 0 ? nullptr : memory.get();
    }

    bool Incomplete() const { return typePointer == nullptr || sizePointer == nullptr; }

    std::string Text() const { return reinterpret_cast<const char*>(memory.get()); }

    int command = 0;
    int type = 0;
    std::size_t space = 0;
    std::size_t size = 0;
    std::unique_ptr<unsigned char[]> memory;
    int* typePointer = nullptr;
    std::size_t* sizePointer = nullptr;
    void* buffer = nullptr;
};

class Caller
{
  public:
    Caller(FuzzInput& input, FakeCamera& camera) : m_input(input), m_camera(camera) {}

    /// One call.
    void Call();

    /// Closes what the run left open.
    void Finish();

  private:
#define NQ_DECLARE_CALL(name) void name();
    GENTL_FUNCTIONS(NQ_DECLARE_CALL)
#undef NQ_DECLARE_CALL

    /// Checks a result of which there can be only one, and keeps it as the last error where it is one.
    void Expect(const char* function, int result, int expected);

    /// As Expect, for calls that look for a handle first: `found` or -1006, and -1002 before all.
    bool Reaches(const char* function, int result, bool found);

    /// Checks what is common to all answers to info commands; `otherwise` is the code of a refused command, 0 for one
    /// that has an answer.
    void ExpectInfo(const char* function, int result, const InfoArguments& info, int otherwise);

    void ExpectParent(const char* function, int result, void* handle, Kind kind, void* const* output);
    void Stacked(const char* function, bool reads);
    void NotePortWrite(const Module& module, std::uint64_t address);
    void FlushEvent(Module& stream);
    void AddUnqueued(Module& stream);
    void AfterOpening(Module& interface, void* handle);
    bool CameraHelps() const { return m_mood == FakeCamera::Mood::Helpful; }
    bool CameraIsSilent() const { return m_mood == FakeCamera::Mood::Silent; }

    /// The text that a call gets as id: the right one, a wrong one, an empty one or none.
    const char* Id(const char* right);

    FuzzInput& m_input;
    FakeCamera& m_camera;
    FakeCamera::Mood m_mood = FakeCamera::Mood::Helpful;
    Model m_model;
};

} // namespace nq::fuzz
