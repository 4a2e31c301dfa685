// SPDX-License-Identifier: Apache-2.0
// Which form the raw files of a recording have, by the lines that grab wrote of them.
#include "raw_forms.h"

#include "exit_codes.h"
#include "name_pattern.h"

#include <cerrno>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>

namespace nq::tool
{

namespace
{

constexpr std::streamsize kMostLineBytes = 65536;

std::optional<uint64_t> NumberIn(const nlohmann::json& line, const char* key)
{
    const auto found = line.find(key);
    return found != line.end() && found->is_number_unsigned() ? std::optional(found->get<uint64_t>()) : std::nullopt;
}

std::string TextIn(const nlohmann::json& line, const char* key)
{
    const auto found = line.find(key);
    return found != line.end() && found->is_string() ? found->get<std::string>() : "";
}

} // namespace

RawForms::RawForms(const std::string& path)
{
    std::ifstream file(path);
    std::string line(kMostLineBytes, '\0');
    for (size_t number = 1; file.getline(line.data(), kMostLineBytes); ++number)
    {
        const std::string text(line.data());
        if (!text.empty() && !Take(text))
        {
            m_unusable.push_back(number);
        }
    }
    if (!file.eof())
    {
        throw ToolFailure(ExitCode::Failure,
                          fmt::format("cannot read {}: {}", path,
                                      file.is_open() && !file.bad() ? "it has a line of more than 64 KiB"
                                                                    : std::generic_category().message(errno)));
    }
}

bool RawForms::Take(const std::string& text)
{
    const nlohmann::json line = nlohmann::json::parse(text, nullptr, false);
    if (!line.is_object())
    {
        return false;
    }
    const auto id = NumberIn(line, "id");
    const auto width = NumberIn(line, "width");
    const auto height = NumberIn(line, "height");
    const std::string format = TextIn(line, "pixel_format");
    if (!id || !width || !height || format.empty())
    {
        return false;
    }
    const RawFrame frame{{*width, *height, std::strtoull(format.c_str(), nullptr, 16)}, *id};
    if (line.contains("file"))
    {
        const std::string name = TextIn(line, "file");
        name.empty() ? void() : void(m_frames.insert_or_assign(name, frame)); // null for a frame without a file
        return true;
    }
    const NameFields fields{TextIn(line, "camera"), *id, {}};
    m_frames.insert_or_assign(NameBy("frame-{id}", fields) + ".raw", frame);
    m_frames.insert_or_assign(NameBy("{camera}-{id}", fields) + ".raw", frame);
    return true;
}

std::optional<RawFrame> RawForms::Of(const std::string& name) const
{
    const auto found = m_frames.find(name);
    return found == m_frames.end() ? std::nullopt : std::optional(found->second);
}

} // namespace nq::tool
