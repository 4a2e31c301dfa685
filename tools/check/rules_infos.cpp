// SPDX-License-Identifier: Apache-2.0
// Rules: the contract of info calls, tried with every command of every module.
#include "families.h"
#include "info_sets.h"

#include <algorithm>
#include <fmt/format.h>

namespace nq::check
{

namespace
{

using namespace GenTL;

constexpr int32_t kUnknownCommand = 999;
constexpr size_t kRoom = size_t{64} << 10;
constexpr char kGuard = 0x5A;

void UnknownCommands(Context& c)
{
    const InfoSets sets(c);
    for (const InfoFunction& function : sets.functions)
    {
        INFO_DATATYPE type = 0;
        char buffer[1024];
        size_t size = sizeof buffer;
        c.Code(function.call(kUnknownCommand, &type, buffer, &size), {GC_ERR_NOT_IMPLEMENTED},
               function.name + ", command 999");
    }
}

void WithoutSize(Context& c)
{
    const InfoSets sets(c);
    for (const InfoFunction& function : sets.functions)
    {
        INFO_DATATYPE type = 0;
        char buffer[1024];
        c.Code(function.call(0, &type, buffer, nullptr), {GC_ERR_INVALID_PARAMETER}, function.name + " without size");
    }
}

void WithoutType(Context& c)
{
    const InfoSets sets(c);
    for (const InfoFunction& function : sets.functions)
    {
        char buffer[4096];
        size_t size = sizeof buffer;
        c.Code(function.call(0, nullptr, buffer, &size), {GC_ERR_INVALID_PARAMETER}, function.name + " without type");
    }
}

struct Answer
{
    GC_ERROR code = 0;
    INFO_DATATYPE type = -1;
    size_t size = 0;
    std::vector<char> bytes;
};

Answer Ask(const InfoCommand& command, size_t room, bool query)
{
    Answer answer;
    answer.bytes.assign(kRoom, kGuard);
    answer.size = room;
    answer.code = command.call(&answer.type, query ? nullptr : answer.bytes.data(), &answer.size);
    return answer;
}

/// Calls `rule` for each command that answers, with its size.
void ForEachAnswered(Context& c, const std::function<void(const InfoCommand&, const Answer&)>& rule)
{
    const InfoSets sets(c);
    for (const InfoCommand& command : sets.commands)
    {
        const Answer whole = Ask(command, kRoom, false);
        if (whole.code == GC_ERR_SUCCESS && whole.size <= kRoom)
        {
            rule(command, whole);
        }
    }
}

void SizeOfQuery(Context& c)
{
    ForEachAnswered(c, [&](const InfoCommand& command, const Answer&) {
        const Answer little = Ask(command, 0, true);
        const Answer much = Ask(command, size_t{1} << 40, true);
        c.Code(little.code, {GC_ERR_SUCCESS}, command.name + " without buffer, size 0 before");
        c.Code(much.code, {GC_ERR_SUCCESS}, command.name + " without buffer, size 2^40 before");
        if (little.code == GC_ERR_SUCCESS && little.size <= kRoom)
        {
            // Exactly so much has to be enough, and has to be what is told then.
            const Answer exact = Ask(command, little.size, false);
            c.Expect(exact.code == GC_ERR_SUCCESS && exact.size == little.size,
                     fmt::format("{}: {} bytes by a query, {} by the call", command.name, little.size, exact.size));
        }
    });
}

void SizeOfCall(Context& c)
{
    ForEachAnswered(c, [&](const InfoCommand& command, const Answer& whole) {
        const size_t size = Ask(command, 0, true).size;
        const Answer exact = Ask(command, size, false);
        c.Code(exact.code, {GC_ERR_SUCCESS}, fmt::format("{} into exactly {} bytes", command.name, size));
        c.Expect(whole.size <= size,
                 fmt::format("{}: size {} told with much room, {} needed", command.name, whole.size, size));
        const auto beyond = std::find_if(whole.bytes.begin() + static_cast<std::ptrdiff_t>(std::min(size, kRoom)),
                                         whole.bytes.end(), [](char byte) { return byte != kGuard; });
        c.Expect(beyond == whole.bytes.end(), fmt::format("{}: byte {} is written, beyond the {} of the value",
                                                          command.name, beyond - whole.bytes.begin(), size));
    });
}

void TooSmall(Context& c)
{
    ForEachAnswered(c, [&](const InfoCommand& command, const Answer& whole) {
        const size_t size = std::min(whole.size, Ask(command, 0, true).size);
        if (size > 1)
        {
            c.Code(Ask(command, size - 1, false).code, {GC_ERR_BUFFER_TOO_SMALL}, command.name + " with one byte less");
        }
    });
}

/// Whether a text is in ASCII or, where that is the encoding, in UTF-8.
bool Encoded(std::string_view text, bool utf8)
{
    int following = 0;
    for (const char c : text)
    {
        const auto byte = static_cast<unsigned char>(c);
        const bool continues = (byte & 0xC0U) == 0x80;
        if (byte >= 0x80 && (!utf8 || byte >= 0xF8 || continues != (following > 0)))
        {
            return false;
        }
        if (byte < 0x80 && following > 0)
        {
            return false;
        }
        following = continues ? following - 1 : byte < 0xC0 ? 0 : byte < 0xE0 ? 1 : byte < 0xF0 ? 2 : 3;
    }
    return following == 0;
}

void Strings(Context& c)
{
    ForEachAnswered(c, [&](const InfoCommand& command, const Answer& whole) {
        const auto encoding = Info<int32_t>([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return c.gentl.GCGetInfo(TL_INFO_CHAR_ENCODING, type, buffer, size);
        });
        if (whole.type == INFO_DATATYPE_STRING)
        {
            const std::string_view text(whole.bytes.data());
            c.Expect(Encoded(text, encoding == TL_CHAR_ENCODING_UTF8),
                     command.name + ": bytes that the encoding of TL_INFO_CHAR_ENCODING does not have");
            const size_t length =
                static_cast<size_t>(std::find(whole.bytes.begin(), whole.bytes.end(), '\0') - whole.bytes.begin());
            c.Expect(length + 1 == whole.size,
                     fmt::format("{}: the first 0 is byte {} of {}", command.name, length, whole.size));
        }
    });
}

void Types(Context& c)
{
    ForEachAnswered(c, [&](const InfoCommand& command, const Answer& whole) {
        c.Expect(whole.type == command.type,
                 fmt::format("{}: type {} instead of {}", command.name, whole.type, command.type));
        const Answer query = Ask(command, 0, true);
        c.Expect(query.code != GC_ERR_SUCCESS || query.type == whole.type,
                 fmt::format("{}: type {} by a query, {} by the call", command.name, query.type, whole.type));
    });
}

void Mandatory(Context& c)
{
    const InfoSets sets(c);
    for (const InfoCommand& command : sets.commands)
    {
        const GC_ERROR code = Ask(command, kRoom, false).code;
        c.Expect(!command.mandatory || code != GC_ERR_NOT_IMPLEMENTED, command.name + " is not implemented");
    }
}

/// A condition of the device may change between two calls, so its access status is left out.
void ByIdAndByHandle(Context& c)
{
    const InfoSets sets(c);
    const auto find = [&](const std::string& name) {
        return std::find_if(sets.commands.begin(), sets.commands.end(),
                            [&](const InfoCommand& one) { return one.name == name; });
    };
    const std::tuple<const char*, const char*, int> pairs[] = {{"TLGetInterfaceInfo", "IFGetInfo", 3},
                                                               {"IFGetDeviceInfo", "DevGetInfo", 10}};
    for (const auto& [byId, byHandle, count] : pairs)
    {
        for (int command = 0; command < count; ++command)
        {
            const Answer one = Ask(*find(fmt::format("{}, command {}", byId, command)), kRoom, false);
            const Answer other = Ask(*find(fmt::format("{}, command {}", byHandle, command)), kRoom, false);
            const bool both = one.code == GC_ERR_SUCCESS && other.code == GC_ERR_SUCCESS;
            c.Expect(!both || one.bytes == other.bytes,
                     fmt::format("{} and {} differ in command {}", byId, byHandle, command));
        }
    }
}

void NoId(Context& c)
{
    Tree tree(c, Depth::Interface);
    tree.LookForCamera();
    INFO_DATATYPE type = 0;
    char text[1024];
    size_t size = sizeof text;
    c.Code(c.gentl.IFGetDeviceInfo(tree.interface, nullptr, DEVICE_INFO_VENDOR, &type, text, &size),
           {GC_ERR_INVALID_PARAMETER}, "IFGetDeviceInfo without an id");
    size = sizeof text;
    c.Expect(c.gentl.IFGetDeviceInfo(tree.interface, "no such camera", DEVICE_INFO_VENDOR, &type, text, &size) !=
                 GC_ERR_SUCCESS,
             "IFGetDeviceInfo of an unknown id succeeds");
    size = sizeof text;
    c.Expect(c.gentl.TLGetInterfaceInfo(tree.system, "no such interface", INTERFACE_INFO_ID, &type, text, &size) !=
                 GC_ERR_SUCCESS,
             "TLGetInterfaceInfo of an unknown id succeeds");
}

/// Nothing happens between the two rounds that would change an answer.
void Repeated(Context& c)
{
    ForEachAnswered(c, [&](const InfoCommand& command, const Answer& first) {
        const Answer second = Ask(command, kRoom, false);
        c.Expect(second.code == first.code && second.size == first.size && second.bytes == first.bytes,
                 command.name + " gives another answer when it is asked again");
    });
}

constexpr Rule kRules[] = {
    {"IN-001", "an unknown info command is not implemented", "6.1.6", Severity::Must, Needs::Nothing, UnknownCommands},
    {"IN-002", "an info call without size is refused", "6.3.1.2", Severity::Must, Needs::Nothing, WithoutSize},
    {"IN-003", "an info call without type is refused", "6.3.1.2", Severity::Hint, Needs::Nothing, WithoutType,
     "a sample of the text leaves the type out"},
    {"IN-004", "without buffer an info call tells the exact size, whatever the size was", "6.3.1.2", Severity::Must,
     Needs::Nothing, SizeOfQuery},
    {"IN-005", "the exact size and more will do; the size is that of the value, and nothing beyond is written",
     "6.3.1.2", Severity::Must, Needs::Nothing, SizeOfCall},
    {"IN-006", "one byte less is too small", "6.3.1.2", Severity::Must, Needs::Nothing, TooSmall},
    {"IN-007", "a string ends with its only 0, which its size counts, and has the encoding that is told",
     "6.1.3, 6.2.1.4", Severity::Must, Needs::Nothing, Strings},
    {"IN-008", "the type is that of the command, in a query and in a call", "6.4", Severity::Must, Needs::Nothing,
     Types},
    {"IN-009", "a mandatory command is implemented", "6.4", Severity::Must, Needs::Nothing, Mandatory,
     "what is mandatory came with 1.5"},
    {"IN-010", "infos by id and by handle agree", "6.3.2.4, 6.3.3.4", Severity::Should, Needs::Camera, ByIdAndByHandle},
    {"IN-011", "an info of no id is refused, and of an unknown id there is none", "6.3.2.4, 6.3.3.4", Severity::Must,
     Needs::Camera, NoId},
    {"IN-012", "an info call that is repeated gives the same", "6.3.1.2", Severity::Must, Needs::Nothing, Repeated},
};

} // namespace

std::span<const Rule> InfoRules()
{
    return kRules;
}

} // namespace nq::check
