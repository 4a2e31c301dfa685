// SPDX-License-Identifier: Apache-2.0
// The exported texts of verbs, as libibverbs words them.
#include <array>
#include <cstddef>
#include <infiniband/verbs.h>

namespace
{

template <size_t count>
const char* TextOf(const std::array<const char*, count>& texts, int value, const char* other)
{
    return value >= 0 && static_cast<size_t>(value) < count ? texts[static_cast<size_t>(value)] : other;
}

} // namespace

extern "C"
{

const char* ibv_wc_status_str(ibv_wc_status status)
{
    static constexpr std::array kTexts = {
        "success",
        "local length error",
        "local QP operation error",
        "local EE context operation error",
        "local protection error",
        "Work Request Flushed Error",
        "memory management operation error",
        "bad response error",
        "local access error",
        "remote invalid request error",
        "remote access error",
        "remote operation error",
        "transport retry counter exceeded",
        "RNR retry counter exceeded",
        "local RDD violation error",
        "remote invalid RD request",
        "aborted error",
        "invalid EE context number",
        "invalid EE context state",
        "fatal error",
        "response timeout error",
        "general error",
        "TM error",
        "TM software rendezvous",
    };
    return TextOf(kTexts, status, "unknown");
}

const char* ibv_event_type_str(ibv_event_type event)
{
    static constexpr std::array kTexts = {
        "CQ error",
        "local work queue catastrophic error",
        "invalid request local work queue error",
        "local access violation work queue error",
        "communication established",
        "send queue drained",
        "path migrated",
        "path migration request error",
        "local catastrophic error",
        "port active",
        "port error",
        "LID change",
        "P_Key change",
        "SM change",
        "SRQ catastrophic error",
        "SRQ limit reached",
        "last WQE reached",
        "client reregistration",
        "GID table change",
        "WQ fatal",
    };
    return TextOf(kTexts, event, "unknown");
}

const char* ibv_port_state_str(ibv_port_state state)
{
    static constexpr std::array kTexts = {"no state change (NOP)", "down", "init", "armed", "active", "active defer"};
    return TextOf(kTexts, state, "unknown");
}

const char* ibv_node_type_str(ibv_node_type type)
{
    static constexpr std::array kTexts = {
        "unknown",           "InfiniBand channel adapter",
        "InfiniBand switch", "InfiniBand router",
        "iWARP NIC",         "usNIC",
        "usNIC UDP",         "unspecified",
    };
    return TextOf(kTexts, type, "unknown");
}

} // extern "C"
