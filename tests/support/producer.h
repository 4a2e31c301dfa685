// SPDX-License-Identifier: Apache-2.0
// The library under test, loaded as a consumer loads it.
#pragma once

#include "GenTL/GenTL.h"
#include "GenTL/GenTLFunctions.h"

#include <string>

namespace nq::test
{

/// Loads a producer by dlopen and looks up all 57 functions, each a member under its own name:
///
///     Producer producer;
///     ASSERT_EQ(producer.GCInitLib(), 0);
///
/// Construct one per test. It does not initialise the library, and its destructor does not close it but gives the
/// dlopen back.
class Producer
{
  public:
    /// Throws std::runtime_error with the loader's text when the file does not load or a function is missing. `flags`
    /// are those of dlopen; 0 stands for RTLD_NOW | RTLD_LOCAL.
    explicit Producer(const std::string& path = NQ_CTI_PATH, int flags = 0);
    ~Producer();
    Producer(const Producer&) = delete;
    Producer& operator=(const Producer&) = delete;

    /// Address of any exported symbol, null when there is none of that name.
    void* Find(const char* symbol) const;

    /// The calling thread's last error, as GCGetLastError gives it.
    GenTL::GC_ERROR LastErrorCode() const;
    std::string LastErrorText() const;

#define NQ_TEST_FUNCTION(name) GenTL::P##name name = nullptr;
    GENTL_FUNCTIONS(NQ_TEST_FUNCTION)
#undef NQ_TEST_FUNCTION

  private:
    void* m_library = nullptr;
};

} // namespace nq::test
