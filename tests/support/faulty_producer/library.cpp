// SPDX-License-Identifier: Apache-2.0
// The library: faults, handles, sessions, the last error, and the contract of info calls.
#include "state.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <locale.h>
#include <set>
#include <unistd.h>

using namespace GenTL;

namespace nq::faulty
{

bool Fault(const char* name)
{
    static const std::set<std::string, std::less<>> kFaults = [] {
        std::set<std::string, std::less<>> names;
        const char* all = std::getenv("NQ_FAULTS");
        std::string_view rest = all == nullptr ? "" : all;
        while (!rest.empty())
        {
            const size_t end = std::min(rest.find(','), rest.size());
            names.emplace(rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        return names;
    }();
    return kFaults.contains(std::string_view(name));
}

State& The()
{
    static State& state = *new State; // waiters may outlive the library's destructors
    return state;
}

void* NewHandle()
{
    static uintptr_t last = 0x5EED0000;
    last += 0x10;
    return reinterpret_cast<void*>(last);
}

Buffer* BufferOf(void* handle)
{
    for (const auto& buffer : The().buffers)
    {
        if (buffer->handle == handle)
        {
            return buffer.get();
        }
    }
    return nullptr;
}

Kind KindOf(void* handle)
{
    const State& s = The();
    const std::pair<void*, Kind> modules[] = {{s.system, Kind::System},
                                              {s.interface, Kind::Interface},
                                              {s.device, Kind::Device},
                                              {s.remote, Kind::Remote},
                                              {s.stream, Kind::Stream}};
    for (const auto& [module, kind] : modules)
    {
        if (handle != nullptr && handle == module)
        {
            return kind;
        }
    }
    if (s.events.contains(handle))
    {
        return Kind::Event;
    }
    return BufferOf(handle) != nullptr ? Kind::Buffer : Kind::None;
}

namespace
{

struct Last
{
    GC_ERROR code = GC_ERR_SUCCESS;
    std::string text;
};

Last& LastError()
{
    static Last shared;
    thread_local Last own;
    return Fault("last_error_shared") ? shared : own;
}

} // namespace

GC_ERROR Result(GC_ERROR code)
{
    if (code != GC_ERR_SUCCESS)
    {
        LastError() = {code, "error " + std::to_string(code)};
    }
    else if (Fault("last_error_cleared"))
    {
        LastError() = {};
    }
    return code;
}

GC_ERROR CheckHandle(void* handle, Kind kind)
{
    if (!The().open)
    {
        return GC_ERR_NOT_INITIALIZED;
    }
    const Kind found = KindOf(handle);
    if (handle == nullptr && Fault("null_handle_is_parameter"))
    {
        return GC_ERR_INVALID_PARAMETER;
    }
    if (handle == nullptr && Fault("null_handle_crashes") && kind == Kind::Stream)
    {
        return *static_cast<volatile GC_ERROR*>(handle);
    }
    if (found == Kind::None && handle != nullptr && Fault("closed_handle_crashes"))
    {
        return *static_cast<volatile GC_ERROR*>(handle);
    }
    if (found == Kind::None && handle != nullptr && Fault("closed_handle_is_success"))
    {
        return GC_ERR_ABORT;
    }
    if (found != kind && found != Kind::None && Fault("foreign_handle_is_parameter"))
    {
        return GC_ERR_INVALID_PARAMETER;
    }
    return found == kind ? GC_ERR_SUCCESS : GC_ERR_INVALID_HANDLE;
}

GC_ERROR Answer(INFO_DATATYPE type, std::string_view bytes, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    if (piSize == nullptr && Fault("null_size_is_handle"))
    {
        return GC_ERR_INVALID_HANDLE;
    }
    if (piSize == nullptr || (piType == nullptr && !Fault("info_without_type")))
    {
        return GC_ERR_INVALID_PARAMETER;
    }
    const size_t room = *piSize;
    if (pBuffer == nullptr && Fault("info_query_wants_size") && room == 0)
    {
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    if (pBuffer != nullptr && room < bytes.size() && !Fault("info_small_is_success"))
    {
        return Fault("info_small_is_parameter") ? GC_ERR_INVALID_PARAMETER : GC_ERR_BUFFER_TOO_SMALL;
    }
    if (pBuffer != nullptr && room == bytes.size() && Fault("info_wants_more"))
    {
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    if (piType != nullptr)
    {
        *piType = pBuffer == nullptr && Fault("info_type_only_with_buffer") ? INFO_DATATYPE_UNKNOWN : type;
    }
    *piSize = bytes.size() + (pBuffer == nullptr && Fault("info_query_one_more") ? 1 : 0);
    if (pBuffer != nullptr)
    {
        std::memcpy(pBuffer, bytes.data(), std::min(room, bytes.size()));
        if (Fault("info_writes_beyond") && room > bytes.size())
        {
            static_cast<char*>(pBuffer)[bytes.size()] = 0;
        }
        if (Fault("info_size_stays"))
        {
            *piSize = room;
        }
    }
    return GC_ERR_SUCCESS;
}

GC_ERROR AnswerText(const std::string& text, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    const size_t size = text.size() + (Fault("string_without_end") ? 0 : 1);
    return Answer(INFO_DATATYPE_STRING, {text.c_str(), size}, piType, pBuffer, piSize);
}

GC_ERROR AnswerId(const char* id, char* text, size_t* size)
{
    INFO_DATATYPE type = 0;
    if (Fault("id_small_is_success") && text != nullptr && size != nullptr && *size < std::strlen(id) + 1)
    {
        return GC_ERR_SUCCESS;
    }
    return AnswerText(id, &type, text, size);
}

namespace
{

/// What a library should not do to the process it is loaded into.
[[gnu::constructor]] void Load()
{
    if (Fault("load_hangs"))
    {
        for (;;)
        {
            pause();
        }
    }
    if (Fault("load_prints"))
    {
        std::puts("made-up producer 1.0");
        std::fflush(stdout);
    }
    if (Fault("load_closes_descriptors"))
    {
        close(STDIN_FILENO);
    }
    if (Fault("load_takes_signals"))
    {
        std::signal(SIGINT, [](int) {}); // not SIG_IGN, which a process in the background may have already
    }
    if (Fault("load_sets_locale"))
    {
        setlocale(LC_ALL, "C.UTF-8");
    }
    if (Fault("load_changes_folder") && chdir("/") != 0)
    {
        std::abort();
    }
    if (Fault("second_copy_aborts"))
    {
        const char* process = std::getenv("NQ_FAULTY_LOADED");
        if (process != nullptr && std::to_string(getpid()) == process)
        {
            std::abort();
        }
        setenv("NQ_FAULTY_LOADED", std::to_string(getpid()).c_str(), 1);
    }
    if (Fault("fork_stops_frames"))
    {
        pthread_atfork(
            nullptr, [] { The().cameraSends = false; }, nullptr);
    }
}

[[gnu::destructor]] void Unload()
{
    unsetenv("NQ_FAULTY_LOADED");
    if (Fault("unload_crashes"))
    {
        std::abort();
    }
}

void SinsOfASession()
{
    State& s = The();
    ++s.sessions;
    s.counted = 0;
    s.closedOnce = false;
    if (Fault("thread_left"))
    {
        std::atomic<bool> runs{false}; // the library may be unloaded next, and is not to be where it begins
        std::thread([&runs] {
            runs = true;
            pause();
        }).detach();
        while (!runs)
        {
            std::this_thread::yield();
        }
    }
    if (Fault("descriptor_left") && open("/dev/null", O_RDONLY | O_CLOEXEC) < 0)
    {
        std::abort();
    }
    if (Fault("memory_left"))
    {
        static std::vector<std::string> kept;
        kept.emplace_back(200000, 'x');
    }
    if (Fault("crash_in_session_60") && s.sessions == 60)
    {
        std::abort();
    }
    if (Fault("hang_in_session_90") && s.sessions == 90)
    {
        pause();
    }
}

} // namespace

std::string OwnPath()
{
    Dl_info info{};
    dladdr(reinterpret_cast<void*>(&The), &info);
    return Fault("wrong_pathname") ? "/nowhere.cti" : info.dli_fname;
}

namespace
{

GC_ERROR SystemInfo(TL_INFO_CMD command, INFO_DATATYPE* type, void* buffer, size_t* size)
{
    const std::string path = OwnPath();
    switch (command)
    {
    case TL_INFO_ID:
        return AnswerText("made-up", type, buffer, size);
    case TL_INFO_VENDOR:
    case TL_INFO_MODEL:
    case TL_INFO_DISPLAYNAME:
        return AnswerText("Made up", type, buffer, size);
    case TL_INFO_VERSION:
        return AnswerText("1.0", type, buffer, size);
    case TL_INFO_TLTYPE:
        return AnswerText(Fault("wrong_tltype") ? "GigEVision" : TLTypeCustomName, type, buffer, size);
    case TL_INFO_NAME:
        return AnswerText(path.substr(path.rfind('/') + 1), type, buffer, size);
    case TL_INFO_PATHNAME:
        if (Fault("other_threads_differ") && gettid() != getpid())
        {
            return AnswerText("elsewhere", type, buffer, size);
        }
        return AnswerText(path, type, buffer, size);
    case TL_INFO_CHAR_ENCODING:
        return AnswerValue<int32_t>(Fault("wrong_info_type") ? INFO_DATATYPE_UINT32 : INFO_DATATYPE_INT32, 0, type,
                                    buffer, size);
    case TL_INFO_GENTL_VER_MAJOR:
        return AnswerValue<uint32_t>(INFO_DATATYPE_UINT32, Fault("wrong_version") ? 5 : 1, type, buffer, size);
    case TL_INFO_GENTL_VER_MINOR:
        return AnswerValue<uint32_t>(INFO_DATATYPE_UINT32, 5, type, buffer, size);
    default:
        return Fault("unknown_command_is_parameter") ? GC_ERR_INVALID_PARAMETER : GC_ERR_NOT_IMPLEMENTED;
    }
}

} // namespace

} // namespace nq::faulty

using namespace nq::faulty;

extern "C" GC_API GCInitLib()
{
    std::unique_lock lock(The().mutex);
    if (The().open)
    {
        return Result(Fault("init_counts") ? GC_ERR_SUCCESS : GC_ERR_RESOURCE_IN_USE);
    }
    SinsOfASession();
    The().open = true;
    return GC_ERR_SUCCESS;
}

extern "C" GC_API GCCloseLib()
{
    std::unique_lock lock(The().mutex);
    if (!The().open)
    {
        if (Fault("close_without_init_exits"))
        {
            std::_Exit(0);
        }
        return Fault("close_without_init") ? GC_ERR_SUCCESS : GC_ERR_NOT_INITIALIZED;
    }
    if (!Fault("close_leaves_system_open"))
    {
        CloseSystem(lock);
    }
    The().open = false;
    return GC_ERR_SUCCESS;
}

extern "C" GC_API GCGetInfo(TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (!The().open && !Fault("works_before_init"))
    {
        return GC_ERR_NOT_INITIALIZED;
    }
    if (iInfoCmd == TL_INFO_VERSION && Fault("info_differs"))
    {
        return Result(AnswerText("1.1", piType, pBuffer, piSize));
    }
    return Result(SystemInfo(iInfoCmd, piType, pBuffer, piSize));
}

extern "C" GC_API TLGetInfo(TL_HANDLE hTL, TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hTL, Kind::System); code != 0)
    {
        return Result(code);
    }
    return Result(SystemInfo(iInfoCmd, piType, pBuffer, piSize));
}

extern "C" GC_API GCGetLastError(GC_ERROR* piErrorCode, char* sErrText, size_t* piSize)
{
    if (!The().open)
    {
        return GC_ERR_NOT_INITIALIZED;
    }
    if (piErrorCode == nullptr || piSize == nullptr)
    {
        return Fault("last_error_without_code") ? GC_ERR_SUCCESS : GC_ERR_INVALID_PARAMETER;
    }
    const Last& last = LastError();
    *piErrorCode = last.code;
    INFO_DATATYPE type = 0;
    const std::string none = Fault("last_error_text") ? "ok" : "No Error";
    return AnswerText(last.code == 0 ? none : last.text, &type, sErrText, piSize);
}
