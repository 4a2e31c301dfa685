// SPDX-License-Identifier: Apache-2.0
// A slow disk: each file that gets its name by linkat() takes 200 ms longer.
#include <chrono>
#include <dlfcn.h>
#include <thread>
#include <unistd.h>

extern "C" int linkat(int fromFolder, const char* from, int toFolder, const char* to, int flags) noexcept
{
    using Function = int (*)(int, const char*, int, const char*, int);
    static const auto kNext = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "linkat"));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    return kNext(fromFolder, from, toFolder, to, flags);
}
