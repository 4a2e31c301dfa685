// SPDX-License-Identifier: Apache-2.0
// A loaded GenTL producer: its 57 functions, and failures as exceptions.
#include "gentl_library.h"

#include "exit_codes.h"

#include <array>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fmt/format.h>
#include <map>

namespace nq::tool
{

namespace fs = std::filesystem;

namespace
{

constexpr size_t kMaxTextBytes = size_t{64} * 1024;

} // namespace

GenTLLibrary::GenTLLibrary(const std::string& path) : m_path(path)
{
    // The loader looks a name without a slash up in its own folders, and would find a namesake there.
    m_library = dlopen(fs::absolute(path).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_library == nullptr)
    {
        throw ToolFailure(ExitCode::NoProducer, fmt::format("cannot load the producer: {}", dlerror()));
    }
    try
    {
        Resolve();
        Check(GCInitLib(), "GCInitLib");
    }
    catch (...)
    {
        dlclose(m_library);
        throw;
    }
}

GenTLLibrary::~GenTLLibrary()
{
    GCCloseLib();
    dlclose(m_library);
}

void GenTLLibrary::Resolve()
{
    const auto find = [this](const char* name) {
        void* address = dlsym(m_library, name);
        if (address == nullptr)
        {
            throw ToolFailure(ExitCode::NoProducer,
                              fmt::format("{} is no GenTL producer: {} is missing", m_path, name));
        }
        return address;
    };
#define NQ_RESOLVE_FUNCTION(Name) Name = reinterpret_cast<GenTL::P##Name>(find(#Name));
    GENTL_FUNCTIONS(NQ_RESOLVE_FUNCTION)
#undef NQ_RESOLVE_FUNCTION
}

void GenTLLibrary::Check(GenTL::GC_ERROR code, const char* function)
{
    if (code != GenTL::GC_ERR_SUCCESS)
    {
        throw GenTLError(code, fmt::format("{} failed: {} ({})", function, ErrorName(code), code));
    }
}

std::string GenTLLibrary::Text(const InfoCall& call)
{
    GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
    size_t size = 0;
    if (call(&type, nullptr, &size) != GenTL::GC_ERR_SUCCESS || type != GenTL::INFO_DATATYPE_STRING ||
        size > kMaxTextBytes)
    {
        return {};
    }
    std::vector<char> text(size + 1, '\0'); // ends, whether the producer ends it or not
    if (call(&type, text.data(), &size) != GenTL::GC_ERR_SUCCESS)
    {
        return {};
    }
    return text.data();
}

namespace
{

/// The number that the first bytes of `bytes` hold, as the type says; nothing for a type that is no number.
std::optional<uint64_t> Decode(GenTL::INFO_DATATYPE type, const void* bytes)
{
    const auto as = [&]<typename Value>(Value value) -> std::optional<uint64_t> {
        std::memcpy(&value, bytes, sizeof value);
        return value < Value{} ? std::nullopt : std::optional<uint64_t>(value);
    };
    switch (type)
    {
    case GenTL::INFO_DATATYPE_INT16:
        return as(int16_t{});
    case GenTL::INFO_DATATYPE_UINT16:
        return as(uint16_t{});
    case GenTL::INFO_DATATYPE_INT32:
        return as(int32_t{});
    case GenTL::INFO_DATATYPE_UINT32:
        return as(uint32_t{});
    case GenTL::INFO_DATATYPE_INT64:
    case GenTL::INFO_DATATYPE_PTRDIFF:
        return as(int64_t{});
    case GenTL::INFO_DATATYPE_UINT64:
    case GenTL::INFO_DATATYPE_SIZET:
        return as(uint64_t{});
    case GenTL::INFO_DATATYPE_BOOL8:
        return as(uint8_t{});
    default:
        return std::nullopt;
    }
}

} // namespace

std::optional<uint64_t> GenTLLibrary::Number(const InfoCall& call)
{
    GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
    uint64_t bytes = 0;
    size_t size = sizeof bytes;
    return call(&type, &bytes, &size) == GenTL::GC_ERR_SUCCESS ? Decode(type, &bytes) : std::nullopt;
}

const void* GenTLLibrary::Pointer(const InfoCall& call)
{
    GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
    const void* address = nullptr;
    size_t size = sizeof address;
    return call(&type, &address, &size) == GenTL::GC_ERR_SUCCESS && type == GenTL::INFO_DATATYPE_PTR ? address
                                                                                                     : nullptr;
}

std::string GenTLLibrary::Id(const IdCall& call, const char* function)
{
    size_t size = 0;
    Check(call(nullptr, &size), function);
    if (size > kMaxTextBytes)
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("{} claims an id of {} bytes", function, size));
    }
    std::vector<char> text(size + 1, '\0');
    Check(call(text.data(), &size), function);
    return text.data();
}

std::string ErrorName(GenTL::GC_ERROR code)
{
    static const std::map<GenTL::GC_ERROR, const char*> kNames = {
        {GenTL::GC_ERR_ERROR, "GC_ERR_ERROR"},
        {GenTL::GC_ERR_NOT_INITIALIZED, "GC_ERR_NOT_INITIALIZED"},
        {GenTL::GC_ERR_NOT_IMPLEMENTED, "GC_ERR_NOT_IMPLEMENTED"},
        {GenTL::GC_ERR_RESOURCE_IN_USE, "GC_ERR_RESOURCE_IN_USE"},
        {GenTL::GC_ERR_ACCESS_DENIED, "GC_ERR_ACCESS_DENIED"},
        {GenTL::GC_ERR_INVALID_HANDLE, "GC_ERR_INVALID_HANDLE"},
        {GenTL::GC_ERR_INVALID_ID, "GC_ERR_INVALID_ID"},
        {GenTL::GC_ERR_NO_DATA, "GC_ERR_NO_DATA"},
        {GenTL::GC_ERR_INVALID_PARAMETER, "GC_ERR_INVALID_PARAMETER"},
        {GenTL::GC_ERR_IO, "GC_ERR_IO"},
        {GenTL::GC_ERR_TIMEOUT, "GC_ERR_TIMEOUT"},
        {GenTL::GC_ERR_ABORT, "GC_ERR_ABORT"},
        {GenTL::GC_ERR_INVALID_BUFFER, "GC_ERR_INVALID_BUFFER"},
        {GenTL::GC_ERR_NOT_AVAILABLE, "GC_ERR_NOT_AVAILABLE"},
        {GenTL::GC_ERR_INVALID_ADDRESS, "GC_ERR_INVALID_ADDRESS"},
        {GenTL::GC_ERR_BUFFER_TOO_SMALL, "GC_ERR_BUFFER_TOO_SMALL"},
        {GenTL::GC_ERR_INVALID_INDEX, "GC_ERR_INVALID_INDEX"},
        {GenTL::GC_ERR_PARSING_CHUNK_DATA, "GC_ERR_PARSING_CHUNK_DATA"},
        {GenTL::GC_ERR_INVALID_VALUE, "GC_ERR_INVALID_VALUE"},
        {GenTL::GC_ERR_RESOURCE_EXHAUSTED, "GC_ERR_RESOURCE_EXHAUSTED"},
        {GenTL::GC_ERR_OUT_OF_MEMORY, "GC_ERR_OUT_OF_MEMORY"},
        {GenTL::GC_ERR_BUSY, "GC_ERR_BUSY"},
    };
    const auto found = kNames.find(code);
    return found != kNames.end() ? found->second : std::to_string(code);
}

} // namespace nq::tool
