// SPDX-License-Identifier: Apache-2.0
// Reads and writes of any address and size, one by one and stacked, on the ports of all modules of an open tree.
#include "GenTL/GenTL.h"
#include "fuzz/fake_camera.h"
#include "fuzz/port_registers.h"

#include <memory>
#include <optional>

namespace
{

using namespace GenTL;
using nq::fuzz::Bytes;
using nq::fuzz::FakeCamera;
using nq::fuzz::FuzzInput;
using nq::fuzz::PortForm;
using nq::fuzz::PortMap;
using nq::fuzz::PortWriting;
using nq::fuzz::RegisterRow;
using nq::fuzz::Require;

constexpr std::size_t kMaps = std::size(nq::fuzz::kPortMaps);
constexpr std::size_t kUpdateFile = 512;

enum Port : std::size_t
{
    System,
    Interface,
    Device,
    Stream,
    Remote,
    Buffer,
    Unknown,
    Ports
};

/// Everything open, from the system down to a buffer, for as long as the program runs.
struct Tree
{
    Tree()
    {
        char id[256];
        std::size_t size = sizeof id;
        Require(GCInitLib() == 0 && TLOpen(&handles[System]) == 0, "the system is opened");
        Require(TLUpdateInterfaceList(handles[System], nullptr, 0) == 0, "the adapters are listed");
        Require(TLGetInterfaceID(handles[System], 0, id, &size) == 0, "the adapter has an id");
        Require(TLOpenInterface(handles[System], id, &handles[Interface]) == 0, "the interface is opened");
        Require(IFUpdateDeviceList(handles[Interface], nullptr, 200) == 0, "the cameras are listed");
        size = sizeof id;
        Require(IFGetDeviceID(handles[Interface], 0, id, &size) == 0, "the camera has an id");
        Require(IFOpenDevice(handles[Interface], id, DEVICE_ACCESS_CONTROL, &handles[Device]) == 0,
                "the device is opened");
        Require(DevGetPort(handles[Device], &handles[Remote]) == 0, "the camera has a port");
        Require(DevOpenDataStream(handles[Device], "Stream:0", &handles[Stream]) == 0, "the stream is opened");
        Require(DSAllocAndAnnounceBuffer(handles[Stream], 64, nullptr, &handles[Buffer]) == 0, "a buffer is announced");
        handles[Unknown] = this;
    }

    FakeCamera camera;
    void* handles[Ports] = {};
};

Tree& OpenTree()
{
    static Tree& tree = *new Tree;
    return tree;
}

/// The values that a run has written and may read back.
class Model
{
  public:
    void Write(std::size_t port, const RegisterRow& written, const unsigned char* bytes, std::size_t size)
    {
        if (written.writing == PortWriting::Stored)
        {
            // Of a shorter write the rest comes from behind the memory, so only its own bytes are known.
            m_numbers[{port, written.address}] = Bytes(bytes, bytes + std::min<std::size_t>(size, 4));
        }
        else if (port == Device && written.form == PortForm::Text)
        {
            std::copy_n(bytes, std::min(size, kUpdateFile), Update().begin());
        }
    }

    void CheckRead(std::size_t port, std::uint64_t address, const unsigned char* bytes) const
    {
        const auto known = m_numbers.find({port, address});
        if (known != m_numbers.end())
        {
            Require(std::equal(known->second.begin(), known->second.end(), bytes), "a stored number is read back",
                    static_cast<long>(address));
        }
        if (port == Device && address == 0x7041C)
        {
            const Bytes& file = Update();
            const auto end = std::find(file.begin(), file.end(), static_cast<unsigned char>(0));
            Require(std::equal(file.begin(), end, bytes) && bytes[end - file.begin()] == 0,
                    "the update file's name is read back up to its end");
        }
    }

  private:
    /// Outlives a run, as the device does.
    static Bytes& Update()
    {
        static Bytes& file = *new Bytes(kUpdateFile, 0);
        return file;
    }

    std::map<std::pair<std::size_t, std::uint64_t>, Bytes> m_numbers;
};

/// One access; the memory is exactly as large as its size, so that the sanitizer sees what goes beyond.
struct Access
{
    Access(FuzzInput& input, std::size_t port)
    {
        if (port < kMaps && input.Below(4) != 0)
        {
            const PortMap& map = nq::fuzz::kPortMaps[port];
            address = map.rows[input.Below(map.rows.size())].address;
        }
        else
        {
            address = input.Flag() ? input.Word() : input.Quad();
        }
        size = input.Flag() ? input.Word() % 2100 : input.Below(16);
        memory.reset(new unsigned char[size]);
        const Bytes bytes = input.Take(std::min<std::size_t>(size, 16));
        std::fill_n(memory.get(), size, static_cast<unsigned char>(0xA5));
        std::copy(bytes.begin(), bytes.end(), memory.get());
    }

    std::uint64_t address = 0;
    std::size_t size = 0;
    std::unique_ptr<unsigned char[]> memory;
};

bool RemoteMayGive(FakeCamera::Mood mood, int result)
{
    return result == (mood == FakeCamera::Mood::Helpful ? 0 : -1010);
}

/// Whether an access without null pointers may end so; `size` is what came back.
bool MayGive(std::size_t port, bool reads, const Access& access, int result, std::size_t size, FakeCamera::Mood mood)
{
    switch (port)
    {
    case Remote:
        return RemoteMayGive(mood, result) && size == access.size;
    case Buffer:
        return result == -1003;
    case Unknown:
        return result == -1006;
    default: {
        const PortMap& map = nq::fuzz::kPortMaps[port];
        return reads ? map.ReadMayGive(access.address, access.size, result, size)
                     : result == map.WriteResult(access.address) && size == access.size;
    }
    }
}

void Note(Model& model, std::size_t port, bool reads, const Access& access, const unsigned char* memory)
{
    if (port >= kMaps)
    {
        return;
    }
    if (reads)
    {
        model.CheckRead(port, access.address, memory);
    }
    else if (const RegisterRow* const written = nq::fuzz::kPortMaps[port].Find(access.address))
    {
        model.Write(port, *written, memory, access.size);
    }
}

void Single(Tree& tree, Model& model, FuzzInput& input, std::size_t port, FakeCamera::Mood mood)
{
    const bool reads = input.Flag();
    const Access access(input, port);
    std::size_t size = access.size;
    const int result = reads ? GCReadPort(tree.handles[port], access.address, access.memory.get(), &size)
                             : GCWritePort(tree.handles[port], access.address, access.memory.get(), &size);
    Require(MayGive(port, reads, access, result, size, mood), reads ? "a read's result" : "a write's result", result);
    if (result == 0)
    {
        Note(model, port, reads, access, access.memory.get());
    }
}

/// The one result that an access can have; none for a text, which fits or does not.
std::optional<int> OnlyResult(std::size_t port, bool reads, const Access& access, FakeCamera::Mood mood)
{
    for (const int result : {0, -1016, -1003, -1005, -1006, -1010, -1015})
    {
        for (const std::size_t size : {access.size, std::size_t{4}, std::size_t{8}})
        {
            if (MayGive(port, reads, access, result, size, mood))
            {
                const bool text = port < kMaps && reads && nq::fuzz::kPortMaps[port].IsText(access.address);
                return text ? std::nullopt : std::optional<int>(result);
            }
        }
    }
    return std::nullopt;
}

/// Checks the result of a stack: that of the first entry that failed. Entries before it are done.
void CheckStack(Model& model, std::size_t port, bool reads, const std::vector<Access>& accesses, int result,
                FakeCamera::Mood mood)
{
    for (const Access& access : accesses)
    {
        const std::optional<int> only = OnlyResult(port, reads, access, mood);
        if (!only && result == -1016)
        {
            return;
        }
        if (only.value_or(0) != 0)
        {
            Require(result == *only, "a stack ends with its first failure", result);
            return;
        }
        if (!reads || result == 0)
        {
            Note(model, port, reads, access, access.memory.get());
        }
    }
    Require(result == (!accesses.empty() || port < Buffer ? 0
                       : port == Buffer                   ? -1003
                                                          : -1006),
            "a stack without a failure succeeds", result);
}

void Stacked(Tree& tree, Model& model, FuzzInput& input, std::size_t port, FakeCamera::Mood mood)
{
    const bool reads = input.Flag();
    std::vector<Access> accesses;
    std::vector<PORT_REGISTER_STACK_ENTRY> entries;
    for (std::size_t count = input.Below(5); count > 0; --count)
    {
        accesses.emplace_back(input, port);
        entries.push_back({accesses.back().address, accesses.back().memory.get(), accesses.back().size});
    }
    std::size_t count = entries.size();
    PORT_REGISTER_STACK_ENTRY none{};
    PORT_REGISTER_STACK_ENTRY* const first = entries.empty() ? &none : entries.data();
    const int result = reads ? GCReadPortStacked(tree.handles[port], first, &count)
                             : GCWritePortStacked(tree.handles[port], first, &count);
    Require(count == entries.size(), "the number of entries stays");
    CheckStack(model, port, reads, accesses, result, mood);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Tree& tree = OpenTree();
    Model model;
    FuzzInput input(data, size);
    while (!input.Empty())
    {
        const std::size_t port = input.Below(Ports);
        const auto mood = static_cast<FakeCamera::Mood>(std::max<int>(static_cast<int>(input.Below(8)) - 5, 0));
        tree.camera.SetMood(mood);
        if (input.Below(4) == 0)
        {
            Stacked(tree, model, input, port, mood);
        }
        else
        {
            Single(tree, model, input, port, mood);
        }
        tree.camera.SetMood(FakeCamera::Mood::Helpful);
    }
    return 0;
}
