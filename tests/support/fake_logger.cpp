// SPDX-License-Identifier: Apache-2.0
// Access to the fake logging library, and the trace of the library under test through it.
#include "support/fake_logger.h"

#include <cstdint>
#include <cstdio>
#include <dlfcn.h>
#include <stdexcept>

namespace nq::test
{

FakeLogger::FakeLogger(const std::string& path) : m_library(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (m_library == nullptr)
    {
        throw std::runtime_error(dlerror());
    }
}

FakeLogger::~FakeLogger()
{
    LetGo();
}

void FakeLogger::LetGo()
{
    if (m_library != nullptr)
    {
        dlclose(m_library);
        m_library = nullptr;
    }
}

void FakeLogger::SetInitResult(bool result) const
{
    reinterpret_cast<void (*)(bool)>(Find("FakeLoggerSetInitResult"))(result);
}

void FakeLogger::HoldTraces(bool hold) const
{
    reinterpret_cast<void (*)(bool)>(Find("FakeLoggerHoldTraces"))(hold);
}

void FakeLogger::AwaitHeld(unsigned int count) const
{
    reinterpret_cast<void (*)(unsigned int)>(Find("FakeLoggerAwaitHeld"))(count);
}

std::vector<std::string> FakeLogger::Lines() const
{
    auto* const line = reinterpret_cast<bool (*)(std::size_t, char*, std::size_t)>(Find("FakeLoggerLine"));
    std::vector<std::string> lines;
    char text[4096];
    while (line(lines.size(), text, sizeof(text)))
    {
        lines.emplace_back(text);
    }
    return lines;
}

void FakeLogger::Clear() const
{
    reinterpret_cast<void (*)()>(Find("FakeLoggerClear"))();
}

void* FakeLogger::Find(const char* symbol) const
{
    return dlsym(m_library, symbol);
}

ProducerTrace::ProducerTrace(const Producer& producer) : m_producer(producer)
{
    producer.GCGetLastError(nullptr, nullptr, nullptr);
    auto* const open = reinterpret_cast<bool (*)(void*)>(producer.Find("_ZN8NQLogger4OpenEv"));
    void* const logger = producer.Find("_ZZN8NQLogger11getInstanceEvE8instance");
    if (open == nullptr || logger == nullptr || !open(logger))
    {
        throw std::runtime_error("the producer's logger does not open");
    }
    m_fake.Clear();
}

ProducerTrace::~ProducerTrace()
{
    auto* const close = reinterpret_cast<void (*)(void*)>(m_producer.Find("_ZN8NQLogger5CloseEv"));
    close(m_producer.Find("_ZZN8NQLogger11getInstanceEvE8instance"));
}

std::vector<std::string> ProducerTrace::Take()
{
    std::vector<std::string> lines = m_fake.Lines();
    m_fake.Clear();
    return lines;
}

std::string Shown(const void* handle)
{
    char text[16];
    std::snprintf(text, sizeof(text), "%x", static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(handle)));
    return text;
}

} // namespace nq::test
