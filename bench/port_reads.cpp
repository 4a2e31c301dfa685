// SPDX-License-Identifier: Apache-2.0
// Reads of a camera's registers and memory, one after the other: by the library, by a bare UDP socket, by Aravis.
// Prints JSON. Run beside a virtual camera; `./run bench` alternates its calls.
#include "library_camera.h"
#include "nq_version.h"
#include "reference_control.h"

#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <fmt/format.h>
#include <functional>
#include <nlohmann/json.hpp>
#ifdef NQ_BENCH_ARAVIS
#include <arv.h>
#endif

namespace
{

using namespace nq::bench;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kRegister = 0x0A00; // control privilege
constexpr std::uint32_t kMemory = 0x0000;   // the bootstrap registers
constexpr std::uint16_t kMemorySize = 512;  // which all three get by one packet

/// One read of 4 or of 512 bytes. Throws when it fails.
using Read = std::function<void()>;

struct Options
{
    std::string by = "library";
    std::string camera;
    std::string producer;
    bool memory = false;
    double seconds = 0.5;
};

nlohmann::ordered_json Measure(const Options& options, const Read& read)
{
    for (int index = 0; index < 100; ++index)
    {
        read();
    }
    const auto start = Clock::now();
    const auto end = start + std::chrono::duration<double>(options.seconds);
    std::uint64_t reads = 0;
    auto now = start;
    for (; now < end; now = Clock::now())
    {
        read();
        ++reads;
    }
    return {{"by", options.by},
            {"bytes", options.memory ? kMemorySize : 4},
            {"reads", reads},
            {"reads_per_second", static_cast<double>(reads) / std::chrono::duration<double>(now - start).count()}};
}

nlohmann::ordered_json ByLibrary(const Options& options)
{
    LibraryHost host(options.producer);
    LibraryCamera camera(host, options.camera);
    return Measure(options, [&] {
        std::array<char, kMemorySize> bytes{};
        std::size_t size = options.memory ? bytes.size() : 4;
        const std::uint64_t address = options.memory ? kMemory : kRegister;
        nq::tool::GenTLLibrary::Check(host.Library().GCReadPort(camera.Port(), address, bytes.data(), &size),
                                      "GCReadPort");
    });
}

nlohmann::ordered_json ByUdp(const Options& options)
{
    ReferenceControl control(options.camera);
    control.TakeControl();
    return Measure(options, [&] {
        std::array<char, kMemorySize> bytes{};
        options.memory ? control.ReadMemory(kMemory, bytes.data(), bytes.size())
                       : static_cast<void>(control.ReadRegister(kRegister));
    });
}

#ifdef NQ_BENCH_ARAVIS
/// Throws with the text of an error that Aravis tells.
void Require(bool good, GError* error)
{
    if (!good || error != nullptr)
    {
        throw std::runtime_error(error != nullptr ? error->message : "Aravis fails");
    }
}

/// The address of this host from which the camera is reached; null when it is not.
GInetAddress* OwnAddress(GInetAddress* camera)
{
    GSocket* const socket = g_socket_new(G_SOCKET_FAMILY_IPV4, G_SOCKET_TYPE_DATAGRAM, G_SOCKET_PROTOCOL_UDP, nullptr);
    GSocketAddress* const place = g_inet_socket_address_new(camera, 3956);
    GInetAddress* own = nullptr;
    if (g_socket_connect(socket, place, nullptr, nullptr) != FALSE)
    {
        GSocketAddress* const local = g_socket_get_local_address(socket, nullptr);
        own = G_INET_ADDRESS(g_object_ref(g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(local))));
        g_object_unref(local);
    }
    g_object_unref(place);
    g_object_unref(socket);
    return own;
}

nlohmann::ordered_json ByAravis(const Options& options)
{
    GError* error = nullptr;
    GInetAddress* const place = g_inet_address_new_from_string(options.camera.c_str());
    GInetAddress* const host = OwnAddress(place);
    Require(host != nullptr, nullptr);
    ArvDevice* const device = arv_gv_device_new(host, place, &error);
    Require(device != nullptr, error);
    auto result = Measure(options, [&] {
        std::array<char, kMemorySize> bytes{};
        guint32 value = 0;
        const gboolean good = options.memory
                                  ? arv_device_read_memory(device, kMemory, bytes.size(), bytes.data(), &error)
                                  : arv_device_read_register(device, kRegister, &value, &error);
        Require(good != FALSE, error);
    });
    g_object_unref(device);
    g_object_unref(place);
    g_object_unref(host);
    return result;
}
#else
nlohmann::ordered_json ByAravis(const Options&)
{
    throw std::runtime_error("built without Aravis");
}
#endif

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("How fast registers and memory of a camera are read");
    app.set_version_flag("--version", NQ_VERSION_TEXT("port_reads"));
    app.add_option("--by", options.by)->check(CLI::IsMember({"library", "udp", "aravis"}));
    app.add_option("--camera", options.camera, "dotted IPv4 address")->required();
    app.add_option("--producer", options.producer, "path of the library");
    app.add_flag("--memory", options.memory, "512 bytes of memory in place of a register");
    app.add_option("--seconds", options.seconds);
    CLI11_PARSE(app, argc, argv);
    try
    {
        const auto measured = options.by == "library" ? ByLibrary(options)
                              : options.by == "udp"   ? ByUdp(options)
                                                      : ByAravis(options);
        fmt::print("{}\n", measured.dump(2));
        return 0;
    }
    catch (const std::exception& failure)
    {
        fmt::print(stderr, "port_reads: {}\n", failure.what());
        return 1;
    }
}
