// SPDX-License-Identifier: Apache-2.0
// A loaded GenTL producer: its 57 functions, and failures as exceptions.
#pragma once

#include "GenTL/GenTL.h"
#include "GenTL/GenTLFunctions.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace nq::tool
{

/// A GenTL call that answered with a negative code. The text names the function and the code.
class GenTLError : public std::runtime_error
{
  public:
    GenTLError(GenTL::GC_ERROR code, const std::string& text) : std::runtime_error(text), m_code(code) {}

    GenTL::GC_ERROR Code() const { return m_code; }

  private:
    GenTL::GC_ERROR m_code;
};

/// Loads one .cti, calls GCInitLib, and undoes both when it goes. Its functions may be called from any thread.
class GenTLLibrary
{
  public:
    /// An info function with everything bound but type, buffer and size.
    using InfoCall = std::function<GenTL::GC_ERROR(GenTL::INFO_DATATYPE*, void*, size_t*)>;

    /// An id function with everything bound but buffer and size.
    using IdCall = std::function<GenTL::GC_ERROR(char*, size_t*)>;

    /// Throws ToolFailure(NoProducer) when the file cannot be loaded or lacks a function.
    explicit GenTLLibrary(const std::string& path);
    ~GenTLLibrary();
    GenTLLibrary(const GenTLLibrary&) = delete;
    GenTLLibrary& operator=(const GenTLLibrary&) = delete;

    /// Throws GenTLError when `code` is not 0. `function` is the name for the message.
    static void Check(GenTL::GC_ERROR code, const char* function);

    /// A text by an info function; an empty one when the producer does not offer it or claims more than 64 KiB.
    static std::string Text(const InfoCall& call);

    /// A number by an info function, read by the type that the producer names; nothing when the producer does not offer
    /// it, or it is negative or no integer.
    static std::optional<uint64_t> Number(const InfoCall& call);

    /// An address by an info function; null when the producer does not offer it.
    static const void* Pointer(const InfoCall& call);

    /// An id by its two-call protocol: size first, then text. Throws GenTLError, and ToolFailure beyond 64 KiB.
    static std::string Id(const IdCall& call, const char* function);

    const std::string& Path() const { return m_path; }

#define NQ_DECLARE_FUNCTION(Name) GenTL::P##Name Name = nullptr;
    GENTL_FUNCTIONS(NQ_DECLARE_FUNCTION)
#undef NQ_DECLARE_FUNCTION

  private:
    void Resolve();

    std::string m_path;
    void* m_library = nullptr;
};

/// The name of a GenTL error code, for example "GC_ERR_TIMEOUT"; the number for an unknown one.
std::string ErrorName(GenTL::GC_ERROR code);

} // namespace nq::tool
