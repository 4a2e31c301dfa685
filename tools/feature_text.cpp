// SPDX-License-Identifier: Apache-2.0
// Values of features as people write them.
#include "feature_text.h"

#include "printable.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <numeric>
#include <utility>

namespace nq::tool
{

namespace
{

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

std::string Trimmed(const std::string& text)
{
    const size_t begin = text.find_first_not_of(" \t");
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

/// Groups of a number from the most significant byte on.
std::string Grouped(uint64_t number, int bytes, const char* form, char separator)
{
    std::string text;
    for (int at = bytes - 1; at >= 0; --at)
    {
        text += fmt::format(fmt::runtime(form), (number >> (8 * at)) & 0xFF);
        text += at > 0 ? std::string(1, separator) : "";
    }
    return text;
}

std::string IntegerText(NumberForm form, int64_t number)
{
    const auto bits = static_cast<uint64_t>(number);
    switch (form)
    {
    case NumberForm::Hex:
        return fmt::format("0x{:X}", bits);
    case NumberForm::Ipv4:
        return bits <= 0xFFFFFFFF ? Grouped(bits, 4, "{}", '.') : fmt::format("0x{:X}", bits);
    case NumberForm::Mac:
        return bits <= 0xFFFFFFFFFFFF ? Grouped(bits, 6, "{:02X}", ':') : fmt::format("0x{:X}", bits);
    default:
        return fmt::format("{}", number);
    }
}

/// The number that groups of digits with the separator mean; nothing for another text.
std::optional<int64_t> Ungrouped(const std::string& text, size_t count, int base, const char* separators)
{
    uint64_t number = 0;
    size_t groups = 0;
    for (size_t at = 0; at <= text.size(); ++groups)
    {
        const size_t end = std::min(text.find_first_of(separators, at), text.size());
        unsigned group = 0;
        const auto [stop, error] = std::from_chars(text.data() + at, text.data() + end, group, base);
        if (error != std::errc() || stop != text.data() + end || group > 0xFF || groups >= count)
        {
            return std::nullopt;
        }
        number = number << 8 | group;
        at = end + 1;
    }
    return groups == count ? std::optional(static_cast<int64_t>(number)) : std::nullopt;
}

/// Decimal or, behind 0x, hexadecimal with up to 64 bits.
std::optional<int64_t> WholeFrom(const std::string& text)
{
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    const char* const begin = text.data() + (hex ? 2 : text.starts_with("+") ? 1 : 0);
    const char* const end = text.data() + text.size();
    int64_t number = 0;
    uint64_t bits = 0;
    const auto [stop, error] = hex ? std::from_chars(begin, end, bits, 16) : std::from_chars(begin, end, number);
    if (error != std::errc() || stop != end || begin == end)
    {
        return std::nullopt;
    }
    return hex ? static_cast<int64_t>(bits) : number;
}

std::optional<double> FloatFrom(const std::string& text)
{
    const char* const begin = text.data() + (text.starts_with("+") ? 1 : 0);
    const char* const end = text.data() + text.size();
    double number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number);
    const bool whole = error == std::errc() && stop == end && begin != end && std::isfinite(number);
    return whole ? std::optional(number) : std::nullopt;
}

/// The text without the unit behind it.
std::string WithoutUnit(const std::string& text, const std::string& unit)
{
    const std::string trimmed = Trimmed(text);
    const bool has = !unit.empty() && trimmed.size() > unit.size() && Lower(trimmed).ends_with(Lower(unit));
    return has ? Trimmed(trimmed.substr(0, trimmed.size() - unit.size())) : trimmed;
}

template <class Number>
bool InRange(const Feature& feature, Number number)
{
    const auto* const min = std::get_if<Number>(&feature.min);
    const auto* const max = std::get_if<Number>(&feature.max);
    return (min == nullptr || number >= *min) && (max == nullptr || number <= *max);
}

bool OnStep(const Feature& feature, int64_t number)
{
    const auto* const step = std::get_if<int64_t>(&feature.step);
    const auto* const min = std::get_if<int64_t>(&feature.min);
    const uint64_t from = min == nullptr ? 0 : static_cast<uint64_t>(*min);
    return step == nullptr || *step <= 1 || (static_cast<uint64_t>(number) - from) % static_cast<uint64_t>(*step) == 0;
}

std::optional<FeatureValue> NumberFrom(const Feature& feature, const std::string& text)
{
    const std::string plain = WithoutUnit(text, feature.unit);
    if (feature.type == FeatureType::Float)
    {
        const std::optional<double> number = FloatFrom(plain);
        return number && InRange(feature, *number) ? std::optional<FeatureValue>(*number) : std::nullopt;
    }
    std::optional<int64_t> number = WholeFrom(Trimmed(text)); // the B of "0x5DB" is a digit, and bytes behind that
    if (!number)
    {
        number = WholeFrom(plain);
    }
    if (!number && feature.form == NumberForm::Ipv4)
    {
        number = Ungrouped(plain, 4, 10, ".");
    }
    if (!number && feature.form == NumberForm::Mac)
    {
        number = Ungrouped(plain, 6, 16, ":-");
    }
    const bool fits = number && InRange(feature, *number) && OnStep(feature, *number);
    return fits ? std::optional<FeatureValue>(*number) : std::nullopt;
}

std::optional<FeatureValue> BooleanFrom(const std::string& text)
{
    const std::string word = Lower(Trimmed(text));
    for (const auto& [name, value] : {std::pair("true", true),
                                      {"on", true},
                                      {"yes", true},
                                      {"1", true},
                                      {"false", false},
                                      {"off", false},
                                      {"no", false},
                                      {"0", false}})
    {
        if (word == name)
        {
            return FeatureValue(value);
        }
    }
    return std::nullopt;
}

std::optional<FeatureValue> EntryFrom(const Feature& feature, const std::string& text)
{
    const auto same = [word = Trimmed(text)](const FeatureEntry& entry) {
        return entry.available && Lower(entry.name) == Lower(word);
    };
    const auto found = std::find_if(feature.entries.begin(), feature.entries.end(), same);
    return found == feature.entries.end() ? std::nullopt : std::optional<FeatureValue>(found->name);
}

std::optional<FeatureValue> RegisterFrom(const Feature& feature, const std::string& text)
{
    std::optional<std::string> bytes = BytesFromHex(text);
    const bool fits = bytes && (!feature.length || bytes->size() == *feature.length);
    return fits ? std::optional<FeatureValue>(*std::move(bytes)) : std::nullopt;
}

std::string LimitText(const Feature& feature, const FeatureValue& limit)
{
    return std::holds_alternative<std::monostate>(limit) ? "" : ValueText(feature, limit);
}

std::string TakenNumbers(const Feature& feature)
{
    const std::string min = LimitText(feature, feature.min);
    const std::string max = LimitText(feature, feature.max);
    const std::string unit = feature.unit.empty() ? "" : " " + feature.unit;
    std::string text = feature.type == FeatureType::Integer ? "a whole number" : "a number";
    text += min.empty() ? "" : " from " + min + (max.empty() ? unit : "");
    text += max.empty() ? "" : (min.empty() ? " up to " : " to ") + max + unit;
    const auto* const step = std::get_if<int64_t>(&feature.step);
    text += step != nullptr && *step > 1 ? fmt::format(" in steps of {}", *step) : "";
    return text;
}

/// How many letters have to change, which is called the distance of Levenshtein.
size_t Distance(const std::string& one, const std::string& other)
{
    std::vector<size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t at = 0; at < one.size(); ++at)
    {
        size_t corner = row[0];
        row[0] = at + 1;
        for (size_t to = 0; to < other.size(); ++to)
        {
            const size_t changed = corner + (one[at] == other[to] ? 0 : 1);
            corner = row[to + 1];
            row[to + 1] = std::min({changed, row[to] + 1, row[to + 1] + 1});
        }
    }
    return row.back();
}

} // namespace

std::string HexBytes(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes)
    {
        text += fmt::format("{:02x}", static_cast<uint8_t>(byte));
    }
    return text;
}

std::optional<std::string> BytesFromHex(std::string_view text)
{
    std::string bytes;
    for (size_t at = 0; at + 1 < text.size(); at += 2)
    {
        unsigned byte = 0;
        const auto [stop, error] = std::from_chars(text.data() + at, text.data() + at + 2, byte, 16);
        if (error != std::errc() || stop != text.data() + at + 2)
        {
            return std::nullopt;
        }
        bytes += static_cast<char>(byte);
    }
    return text.size() % 2 == 0 ? std::optional(bytes) : std::nullopt;
}

std::string ValueText(const Feature& feature, const FeatureValue& value)
{
    if (const auto* const number = std::get_if<int64_t>(&value))
    {
        return IntegerText(feature.form, *number);
    }
    if (const auto* const number = std::get_if<double>(&value))
    {
        return fmt::format("{}", *number);
    }
    if (const auto* const flag = std::get_if<bool>(&value))
    {
        return *flag ? "true" : "false";
    }
    const auto* const text = std::get_if<std::string>(&value);
    if (text == nullptr || feature.type == FeatureType::Enumeration)
    {
        return text == nullptr ? "-" : *text;
    }
    return feature.type == FeatureType::Register
               ? HexText(*text)
               : nlohmann::json(*text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string ValueAndUnit(const Feature& feature, const FeatureValue& value)
{
    return ValueText(feature, value) + (feature.unit.empty() ? "" : " " + feature.unit);
}

FeatureValue ParseValue(const Feature& feature, const std::string& text)
{
    std::optional<FeatureValue> value;
    switch (feature.type)
    {
    case FeatureType::Integer:
    case FeatureType::Float:
        value = NumberFrom(feature, text);
        break;
    case FeatureType::Boolean:
        value = BooleanFrom(text);
        break;
    case FeatureType::Enumeration:
        value = EntryFrom(feature, text);
        break;
    case FeatureType::String:
        value = !feature.length || text.size() <= *feature.length ? std::optional<FeatureValue>(text) : std::nullopt;
        break;
    case FeatureType::Register:
        value = RegisterFrom(feature, Trimmed(text));
        break;
    case FeatureType::Command:
        break;
    }
    if (!value)
    {
        throw FeatureError("takes " + TakenValues(feature));
    }
    return *value;
}

std::string TakenValues(const Feature& feature)
{
    std::string names;
    switch (feature.type)
    {
    case FeatureType::Boolean:
        return "true or false";
    case FeatureType::Enumeration:
        for (const FeatureEntry& entry : feature.entries)
        {
            names += !entry.available ? "" : (names.empty() ? "" : ", ") + entry.name;
        }
        return names.empty() ? "nothing now" : names;
    case FeatureType::String:
        return feature.length ? fmt::format("a text of at most {} bytes", *feature.length) : "a text";
    case FeatureType::Register:
        return feature.length ? fmt::format("{} bytes in hex", *feature.length) : "bytes in hex";
    case FeatureType::Command:
        return "no value: it is a command, for `nq-gev exec`";
    default:
        return TakenNumbers(feature);
    }
}

const char* AccessText(const Feature& feature)
{
    const bool writable = feature.available && feature.writable && !feature.locked;
    const bool readable = feature.available && feature.readable;
    return writable ? (readable ? "RW" : "WO") : readable ? "RO" : "--";
}

const char* TypeText(FeatureType type)
{
    switch (type)
    {
    case FeatureType::Integer:
        return "integer";
    case FeatureType::Float:
        return "float";
    case FeatureType::Boolean:
        return "boolean";
    case FeatureType::Enumeration:
        return "enumeration";
    case FeatureType::String:
        return "string";
    case FeatureType::Command:
        return "command";
    default:
        return "register";
    }
}

std::vector<std::string> NearNames(const std::string& name, const std::vector<std::string>& names)
{
    const std::string wanted = Lower(name);
    std::vector<std::pair<size_t, std::string>> near;
    for (const std::string& one : names)
    {
        const std::string other = Lower(one);
        const size_t distance = Distance(wanted, other);
        const bool part = wanted.size() >= 3 && other.find(wanted) != std::string::npos;
        if (part || distance <= std::max<size_t>(2, wanted.size() / 4))
        {
            near.emplace_back(distance, one);
        }
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto& one, const auto& other) { return one.first < other.first; });
    std::vector<std::string> nearest;
    for (size_t at = 0; at < std::min<size_t>(near.size(), 3); ++at)
    {
        nearest.push_back(near[at].second);
    }
    return nearest;
}

} // namespace nq::tool
