// SPDX-License-Identifier: Apache-2.0
// Chooses answers by the lines of an environment variable, or by the bytes of a fuzzer.
#include "support/fake_producer/answers.h"

#include "fuzz/fuzz_input.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <thread>

namespace nq::fake
{

namespace
{

nq::fuzz::FuzzInput g_fuzz(nullptr, 0);

std::size_t WidthOf(GenTL::INFO_DATATYPE type)
{
    switch (type)
    {
    case GenTL::INFO_DATATYPE_BOOL8:
        return 1;
    case GenTL::INFO_DATATYPE_INT16:
    case GenTL::INFO_DATATYPE_UINT16:
        return 2;
    case GenTL::INFO_DATATYPE_INT32:
    case GenTL::INFO_DATATYPE_UINT32:
        return 4;
    default:
        return 8;
    }
}

/// One line: FUNCTION[.COMMAND][@CALL].FIELD=VALUE. A call counts from 1; without it the line is for all of them.
struct Rule
{
    std::string field;
    std::string value;
    unsigned long call = 0;
};

std::multimap<std::string, Rule> ReadRules()
{
    std::multimap<std::string, Rule> rules;
    const char* text = std::getenv("NQ_FAKE_PRODUCER");
    std::istringstream lines(text == nullptr ? "" : text);
    for (std::string line; std::getline(lines, line);)
    {
        const std::size_t equals = line.find('=');
        const std::size_t dot = line.rfind('.', equals);
        if (equals == std::string::npos || dot == std::string::npos)
        {
            std::abort(); // a test with a mistake
        }
        std::string name = line.substr(0, dot);
        Rule rule{line.substr(dot + 1, equals - dot - 1), line.substr(equals + 1)};
        if (const std::size_t at = name.find('@'); at != std::string::npos)
        {
            rule.call = std::strtoul(name.c_str() + at + 1, nullptr, 10);
            name.resize(at);
        }
        rules.emplace(name, rule);
    }
    return rules;
}

void Apply(const Rule& rule, Answer& answer)
{
    const std::uint64_t number = std::strtoull(rule.value.c_str(), nullptr, 0);
    if (rule.field == "code")
    {
        answer.code = static_cast<GenTL::GC_ERROR>(number);
    }
    else if (rule.field == "type")
    {
        answer.type = static_cast<GenTL::INFO_DATATYPE>(number);
    }
    else if (rule.field == "size")
    {
        answer.size = number;
    }
    else if (rule.field == "value")
    {
        answer = Value(answer.type, number);
    }
    else if (rule.field == "text")
    {
        answer = Text(rule.value);
    }
    else if (rule.field == "signal")
    {
        std::raise(static_cast<int>(number));
    }
    else if (rule.field == "sleep")
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(number));
    }
    else
    {
        std::abort();
    }
}

/// A number that bounds are made for, or any.
std::uint64_t FuzzNumber()
{
    static constexpr std::uint64_t kEdges[] = {
        0, 1, 2, 4096, 4097, 65536, 0x7FFFFFFF, 0xFFFFFFFF, 0x100000000, 0x10000000000, INT64_MAX, UINT64_MAX};
    const std::size_t choice = g_fuzz.Byte();
    return choice < 64 ? g_fuzz.Quad() : choice < 128 ? g_fuzz.Word() : kEdges[choice % std::size(kEdges)];
}

/// A byte below 160, as all behind the end, leaves the truth.
void ApplyFuzz(Answer& answer)
{
    const unsigned char choice = g_fuzz.Byte();
    if (choice < 160)
    {
        return;
    }
    if ((choice & 1) != 0)
    {
        answer.type = g_fuzz.Byte() % 16;
    }
    if ((choice & 2) != 0)
    {
        answer = Value(answer.type, FuzzNumber());
    }
    if ((choice & 4) != 0)
    {
        answer = Text(g_fuzz.Text(g_fuzz.Byte()));
    }
    if ((choice & 8) != 0)
    {
        answer.size = FuzzNumber();
    }
    if ((choice & 16) != 0)
    {
        answer.code = -1001 - g_fuzz.Byte() % 24;
    }
}

} // namespace

Answer Value(GenTL::INFO_DATATYPE type, std::uint64_t value)
{
    const std::size_t width = WidthOf(type);
    return {GenTL::GC_ERR_SUCCESS, type, std::string(reinterpret_cast<const char*>(&value), width), width};
}

Answer Text(const std::string& text)
{
    return {GenTL::GC_ERR_SUCCESS, GenTL::INFO_DATATYPE_STRING, text + '\0', text.size() + 1};
}

std::uint64_t ValueOf(const Answer& answer)
{
    std::uint64_t value = 0;
    std::memcpy(&value, answer.bytes.data(), std::min(answer.bytes.size(), sizeof value));
    return value;
}

Answer Chosen(const std::string& name, Answer truth)
{
    static const std::multimap<std::string, Rule> kRules = ReadRules();
    static std::map<std::string, unsigned long> calls;
    const unsigned long call = ++calls[name];
    const auto [first, last] = kRules.equal_range(name);
    for (auto rule = first; rule != last; ++rule)
    {
        if (rule->second.call == 0 || rule->second.call == call)
        {
            Apply(rule->second, truth);
        }
    }
    ApplyFuzz(truth);
    return truth;
}

/// From now on the bytes choose, until they are used up. They must stay.
extern "C" void NQFakeProducerFuzz(const std::uint8_t* data, std::size_t size)
{
    g_fuzz = nq::fuzz::FuzzInput(data, size);
}

} // namespace nq::fake
