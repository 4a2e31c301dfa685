// SPDX-License-Identifier: Apache-2.0
// The environment variables that shape the loopback, read once.
#include "base/settings.h"

#include <cstdlib>
#include <unistd.h>

namespace nq::loopback
{

namespace
{

std::string Text(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

unsigned long long Number(const char* name, unsigned long long fallback)
{
    const std::string text = Text(name);
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
    return text.empty() || *end != '\0' ? fallback : value;
}

std::chrono::milliseconds Milliseconds(const char* name, unsigned long long fallback)
{
    constexpr unsigned long long kOneDay = 24ULL * 3600 * 1000;
    const unsigned long long value = Number(name, fallback);
    return std::chrono::milliseconds(value < kOneDay ? value : kOneDay);
}

Settings Read()
{
    Settings settings;
    settings.directory = Text("NQ_RDMA_LOOPBACK_DIR");
    if (settings.directory.empty())
    {
        settings.directory = "/tmp/nq-rdma-loopback-" + std::to_string(geteuid());
    }
    settings.logFile = Text("NQ_RDMA_LOOPBACK_LOG");
    settings.failures = Text("NQ_RDMA_LOOPBACK_FAIL");
    const std::string noDevice = Text("NQ_RDMA_LOOPBACK_NO_DEVICE");
    settings.noDevice = !noDevice.empty() && noDevice != "0";
    if (!Text("NQ_RDMA_LOOPBACK_MEMLOCK").empty())
    {
        settings.memoryLimit = Number("NQ_RDMA_LOOPBACK_MEMLOCK", 0);
    }
    settings.connectTimeout = Milliseconds("NQ_RDMA_LOOPBACK_TIMEOUT_MS", 1000);
    settings.retryTimeout = Milliseconds("NQ_RDMA_LOOPBACK_RETRY_MS", 500);
    settings.timeWait = Milliseconds("NQ_RDMA_LOOPBACK_TIMEWAIT_MS", 20);
    settings.connectDelay = Milliseconds("NQ_RDMA_LOOPBACK_CONNECT_MS", 0);
    settings.messageDelay = Milliseconds("NQ_RDMA_LOOPBACK_DELAY_MS", 0);
    return settings;
}

} // namespace

const Settings& Settings::Get()
{
    // Never destroyed: the engine's thread may still read it while the process exits.
    static const Settings& settings = *new Settings(Read());
    return settings;
}

} // namespace nq::loopback
