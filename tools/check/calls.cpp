// SPDX-License-Identifier: Apache-2.0
// The functions of the producer under test.
#include "calls.h"

#include <dlfcn.h>

namespace nq::check
{

std::vector<std::string> Producer::Resolve(void* library)
{
    std::vector<std::string> missing;
    const auto find = [&](const char* name) {
        void* address = dlsym(library, name);
        if (address == nullptr)
        {
            missing.emplace_back(name);
        }
        return address;
    };
#define NQ_RESOLVE_CALL(Name) Name.Set(#Name, find(#Name));
    GENTL_FUNCTIONS(NQ_RESOLVE_CALL)
#undef NQ_RESOLVE_CALL
    return missing;
}

} // namespace nq::check
