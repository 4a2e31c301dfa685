// SPDX-License-Identifier: Apache-2.0
// nq-gev xml, read and write: the description and the registers of a module.
#include "feature_json.h"
#include "module_session.h"
#include "new_file.h"
#include "printable.h"
#include "whole_number.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <fmt/format.h>
#include <memory>

namespace nq::tool
{

namespace
{

constexpr size_t kMostBytes = size_t{1} << 20;
constexpr size_t kRegisterBytes = 4;
constexpr const char* kHexStart = "hex:";

struct PortOptions
{
    ModuleOptions module;
    std::string file;
    bool overwrite = false;
    std::string address;
    std::string value;
    size_t length = kRegisterBytes;
};

uint64_t AddressFrom(const std::string& text)
{
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    uint64_t address = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + (hex ? 2 : 0), end, address, hex ? 16 : 10);
    if (error != std::errc() || stop != end)
    {
        throw ToolFailure(ExitCode::Usage, fmt::format("\"{}\" is no address: decimal, or hex as 0x0A00", text));
    }
    return address;
}

/// A number is the 32 bits of a register, the highest byte first; "hex:" stands before any bytes.
std::string BytesFrom(const std::string& text)
{
    const std::string refusal =
        fmt::format("\"{}\" is no value: a number of 32 bits, or bytes as hex:0a0b0c0d; nothing was changed", text);
    std::string bytes;
    if (!text.starts_with(kHexStart))
    {
        const bool hex = text.starts_with("0x") || text.starts_with("0X");
        uint32_t number = 0;
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data() + (hex ? 2 : 0), end, number, hex ? 16 : 10);
        if (error != std::errc() || stop != end)
        {
            throw ToolFailure(ExitCode::Usage, refusal);
        }
        for (int at = 3; at >= 0; --at)
        {
            bytes += static_cast<char>(number >> (8 * at));
        }
        return bytes;
    }
    for (size_t at = 4; at < text.size(); at += 2)
    {
        uint8_t byte = 0;
        const char* const end = text.data() + std::min(at + 2, text.size());
        const auto [stop, error] = std::from_chars(text.data() + at, end, byte, 16);
        if (error != std::errc() || stop != end || end != text.data() + at + 2)
        {
            throw ToolFailure(ExitCode::Usage, refusal);
        }
        bytes += static_cast<char>(byte);
    }
    return bytes.empty() ? throw ToolFailure(ExitCode::Usage, refusal) : bytes;
}

void PrintBytes(const CommonOptions& common, uint64_t address, const std::string& bytes)
{
    if (common.json)
    {
        PrintJson({{"address", address}, {"length", bytes.size()}, {"bytes", HexText(bytes)}});
        return;
    }
    constexpr size_t kPerLine = 16;
    for (size_t at = 0; at < bytes.size(); at += kPerLine)
    {
        const std::string line = bytes.substr(at, kPerLine);
        std::string text;
        for (const char byte : line)
        {
            text += byte >= ' ' && byte <= '~' ? byte : '.';
        }
        fmt::print("0x{:08x}  {:<47}  {}\n", address + at, HexText(line, " "), text);
    }
}

ExitCode ShowDescription(const CommonOptions& common, const PortOptions& options)
{
    ModuleSession session(common, options.module, ModuleUse::Read);
    const DescriptionFile file = session.Port().Description();
    const std::string xml = PlainDescription(file.bytes);
    if (options.file.empty() || options.file == "-")
    {
        common.json ? PrintJson({{"name", file.name}, {"file", nullptr}, {"xml", xml}}) : fmt::print("{}", xml);
        return ExitCode::Success;
    }
    WriteFile(options.file, xml, options.overwrite);
    if (common.json)
    {
        PrintJson({{"name", file.name}, {"file", options.file}, {"xml", nullptr}});
    }
    else
    {
        fmt::print("{}: {} bytes from {}\n", Printable(options.file), xml.size(), Printable(file.name));
    }
    return ExitCode::Success;
}

ExitCode ReadBytes(const CommonOptions& common, const PortOptions& options)
{
    const uint64_t address = AddressFrom(options.address);
    ModuleSession session(common, options.module, ModuleUse::Read);
    std::string bytes(options.length, '\0');
    if (!session.Port().Read(address, bytes.data(), bytes.size()))
    {
        throw ToolFailure(session.Port().Explained(fmt::format("read of {} bytes at 0x{:x}", bytes.size(), address)));
    }
    PrintBytes(common, address, bytes);
    return ExitCode::Success;
}

ExitCode WriteBytes(const CommonOptions& common, const PortOptions& options)
{
    const uint64_t address = AddressFrom(options.address);
    const std::string bytes = BytesFrom(options.value);
    ModuleSession session(common, options.module, ModuleUse::Control);
    if (address % kRegisterBytes != 0 && !options.value.starts_with(kHexStart) && session.Port().IsGigECamera())
    {
        // As bytes it would change two registers, and at 0x0A01 end the control of the camera.
        throw ToolFailure(ExitCode::Usage, fmt::format("0x{:x} is no address of a register: those of a camera are "
                                                       "multiples of {}; bytes at any address are given as {}{}; "
                                                       "nothing was changed",
                                                       address, kRegisterBytes, kHexStart, HexText(bytes)));
    }
    if (!session.Port().Write(address, bytes.data(), bytes.size()))
    {
        throw ToolFailure(session.Port().Explained(fmt::format("write of {} at 0x{:x}", options.value, address)));
    }
    PrintBytes(common, address, bytes);
    return ExitCode::Success;
}

} // namespace

void AddPortVerbs(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    auto options = std::make_shared<PortOptions>();
    CLI::App* const xml = app.add_subcommand("xml", "Print the register description of a module");
    AddModuleOptions(*xml, options->module, false);
    xml->add_option("-o,--output", options->file, "File for it (default: standard output)");
    xml->add_flag("--overwrite", options->overwrite, "Replace a file that is there already");
    xml->callback([&, options] { chosen = [&common, options] { return ShowDescription(common, *options); }; });

    CLI::App* const read = app.add_subcommand("read", "Print registers of a module");
    AddModuleOptions(*read, options->module, false);
    read->add_option("ADDRESS", options->address, "Decimal, or hex as 0x0A00")->required();
    read->add_option("LENGTH", options->length, "Number of bytes")
        ->check(WholeNumber(1, kMostBytes))
        ->capture_default_str();
    read->callback([&, options] { chosen = [&common, options] { return ReadBytes(common, *options); }; });

    CLI::App* const write = app.add_subcommand("write", "Write a register of a module");
    AddModuleOptions(*write, options->module, true);
    write->add_option("ADDRESS", options->address, "Decimal, or hex as 0x0A00")->required();
    write
        ->add_option("VALUE", options->value,
                     "A number of 32 bits, written with the highest byte first, or bytes as hex:0a0b")
        ->required();
    write->callback([&, options] { chosen = [&common, options] { return WriteBytes(common, *options); }; });
}

} // namespace nq::tool
