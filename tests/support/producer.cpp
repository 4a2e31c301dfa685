// SPDX-License-Identifier: Apache-2.0
// The library under test, loaded as a consumer loads it.
#include "support/producer.h"

#include <dlfcn.h>
#include <stdexcept>

namespace nq::test
{
namespace
{

void* Require(void* library, const char* symbol)
{
    void* const address = dlsym(library, symbol);
    if (address == nullptr)
    {
        throw std::runtime_error(std::string("the producer does not export ") + symbol);
    }
    return address;
}

} // namespace

Producer::Producer(const std::string& path, int flags)
    : m_library(dlopen(path.c_str(), flags != 0 ? flags : RTLD_NOW | RTLD_LOCAL))
{
    if (m_library == nullptr)
    {
        throw std::runtime_error(dlerror());
    }
#define NQ_TEST_RESOLVE(name) name = reinterpret_cast<GenTL::P##name>(Require(m_library, #name));
    GENTL_FUNCTIONS(NQ_TEST_RESOLVE)
#undef NQ_TEST_RESOLVE
}

Producer::~Producer()
{
    dlclose(m_library);
}

void* Producer::Find(const char* symbol) const
{
    return dlsym(m_library, symbol);
}

GenTL::GC_ERROR Producer::LastErrorCode() const
{
    GenTL::GC_ERROR code = 0;
    size_t size = 0;
    return GCGetLastError(&code, nullptr, &size) == 0 ? code : GenTL::GC_ERR_ERROR;
}

std::string Producer::LastErrorText() const
{
    GenTL::GC_ERROR code = 0;
    char text[256] = "";
    size_t size = sizeof(text);
    return GCGetLastError(&code, text, &size) == 0 ? text : "GCGetLastError failed";
}

} // namespace nq::test
