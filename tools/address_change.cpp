// SPDX-License-Identifier: Apache-2.0
// One change of a camera's address: what is asked for, whether it may be, and doing it.
#include "address_change.h"

#include "address_holder.h"
#include "camera_choice.h"
#include "camera_owner.h"
#include "exit_codes.h"
#include "gvcp_reader.h"
#include "printable.h"

#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <iostream>
#include <unistd.h>

namespace nq::tool
{

namespace
{

// Registers that every GigE Vision camera has.
constexpr uint32_t kInterfaces = 0x0600; // their number
constexpr uint32_t kConfiguration = 0x0014;
constexpr uint32_t kPersistentAddress = 0x064C;
constexpr uint32_t kPersistentMask = 0x065C;
constexpr uint32_t kPersistentGateway = 0x066C;
constexpr uint32_t kControl = 2;

/// By any of its names, in the spelling of whoever shows it; `nq-gev list` calls it by model and MAC address.
bool IsMeant(const HeardCamera& camera, const std::string& name)
{
    CameraEntry entry;
    entry.serial = camera.serial;
    entry.userName = camera.userName;
    entry.address = DottedAddress(camera.network.address);
    entry.macAddress = camera.mac;
    const std::string model = camera.model + ":";
    return HasName(entry, name) || (name.starts_with(model) && HasName(entry, name.substr(model.size())));
}

} // namespace

void AddressChange::Check() const
{
    const int ways = (set.empty() ? 0 : 1) + (force.empty() ? 0 : 1) + (dhcp ? 1 : 0) + (linkLocal ? 1 : 0);
    if (ways > 1)
    {
        throw ToolFailure(ExitCode::Usage, "only one of --set, --dhcp, --link-local and --force can be done at a time");
    }
    if (!gateway.empty() && set.empty() && force.empty())
    {
        throw ToolFailure(ExitCode::Usage, "--gateway belongs to --set or --force");
    }
    if (!force.empty() && camera.empty())
    {
        throw ToolFailure(ExitCode::Usage, "--force needs --camera with the MAC address that `nq-gev ip` shows");
    }
    if (!set.empty() || !force.empty())
    {
        const Ipv4Network wanted = Wanted();
        if (Gateway() != 0 && (!wanted.Contains(Gateway()) || Gateway() == wanted.address))
        {
            throw ToolFailure(ExitCode::Usage, fmt::format("the gateway {} is no other host of {}'s subnet", gateway,
                                                           NetworkText(wanted)));
        }
    }
}

const HeardCamera& AddressChange::Choose(const std::vector<HeardCamera>& cameras) const
{
    std::vector<const HeardCamera*> meant;
    for (const HeardCamera& one : cameras)
    {
        if (camera.empty() || IsMeant(one, camera))
        {
            meant.push_back(&one);
        }
    }
    if (meant.empty())
    {
        throw ToolFailure(ExitCode::NoCamera, camera.empty() ? "no camera answered a broadcast on any adapter"
                                                             : fmt::format("no camera '{}' answered; `nq-gev ip` shows "
                                                                           "those that do",
                                                                           Printable(camera)));
    }
    if (meant.size() > 1)
    {
        throw ToolFailure(ExitCode::Usage, fmt::format("{} cameras answered, or one on several adapters: give --camera "
                                                       "with the MAC address of one, or take an adapter down",
                                                       meant.size()));
    }
    return *meant.front();
}

void AddressChange::CheckAgainst(const HeardCamera& target) const
{
    if (force.empty() && (target.supported & Bit()) == 0)
    {
        throw ToolFailure(ExitCode::Failure, "the camera says that it does not know this way to an address");
    }
    if (force.empty() && !target.IsReachable())
    {
        throw ToolFailure(ExitCode::Failure,
                          fmt::format("the camera at {} is out of reach of {} ({}): first give it an address of that "
                                      "subnet with --force",
                                      NetworkText(target.network), target.adapter.name,
                                      NetworkText(target.adapter.networks.front())));
    }
    if (dhcp || linkLocal)
    {
        return;
    }
    const Ipv4Network wanted = Wanted();
    if (!outside && !target.adapter.Reaches(wanted))
    {
        throw ToolFailure(ExitCode::Usage, fmt::format("{} is outside the subnet of {} ({}), which would not reach the "
                                                       "camera; --outside does it nevertheless",
                                                       NetworkText(wanted), target.adapter.name,
                                                       NetworkText(target.adapter.networks.front())));
    }
    // Of whatever adapter: the kernel takes no packet from an address of its own.
    const std::vector<Adapter> adapters = FindAdapters();
    const bool own = std::any_of(adapters.begin(), adapters.end(), [&](const Adapter& adapter) {
        return std::any_of(adapter.networks.begin(), adapter.networks.end(),
                           [&](const Ipv4Network& network) { return network.address == wanted.address; });
    });
    if (own)
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("{} is this machine's own address", NetworkText(wanted)));
    }
    const AddressHolder holder = taken || wanted.address == target.network.address
                                     ? AddressHolder()
                                     : FindHolder(target.adapter.name, wanted.address);
    if (holder.mac.empty())
    {
        return;
    }
    throw ToolFailure(ExitCode::Failure,
                      holder.answered
                          ? fmt::format("{} is taken: {} answers there; --taken takes it nevertheless",
                                        NetworkText(wanted), holder.mac)
                          : fmt::format("{} is taken, as far as the kernel knows from earlier: {} was there. With "
                                        "`sudo` it is asked again.",
                                        NetworkText(wanted), holder.mac));
}

std::string AddressChange::Description() const
{
    const std::string way = gateway.empty() ? "" : " with the gateway " + gateway;
    return dhcp             ? "ask for an address by DHCP at each start"
           : linkLocal      ? "give itself a link-local address at each start"
           : !force.empty() ? "take " + force + way + " until it is switched off"
                            : "keep " + set + way + " for each start";
}

void AddressChange::Confirm(const HeardCamera& target) const
{
    if (yes)
    {
        return;
    }
    if (isatty(STDIN_FILENO) == 0)
    {
        throw ToolFailure(ExitCode::Usage, "nobody is there to ask whether the address may be changed: give --yes");
    }
    fmt::print(stderr, "The camera {} ({} {}) at {} shall {}. Yes? [y/N] ", MacText(target.mac),
               Printable(target.model), Printable(target.serial), NetworkText(target.network), Description());
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes")
    {
        throw ToolFailure(ExitCode::Failure, "nothing was changed");
    }
}

std::string AddressChange::Execute(const HeardCamera& target, std::chrono::milliseconds time) const
{
    if (force.empty())
    {
        const uint32_t interfaces = Keep(target);
        return fmt::format("will {}. It stays at {} until it is switched off and on.{}", Description(),
                           NetworkText(target.network),
                           interfaces < 2 ? ""
                                          : fmt::format(" Of its {} network interfaces this is for the first; the "
                                                        "others stay as they are.",
                                                        interfaces));
    }
    const Ipv4Network wanted = Wanted();
    const bool answered = ForceAddress(target, wanted, Gateway(), time);
    const std::vector<HeardCamera> now = HearCameras({target.adapter}, time);
    const auto found =
        std::find_if(now.begin(), now.end(), [&](const HeardCamera& one) { return one.mac == target.mac; });
    const std::string said = answered ? "The camera acknowledged" : "The camera did not answer the command";
    if (found == now.end())
    {
        throw ToolFailure(
            ExitCode::CameraLost,
            fmt::format("{}, and is silent now. `nq-gev doctor --camera {}` tells more.", said, MacText(target.mac)));
    }
    if (found->network.address != wanted.address)
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("{}, and stands at {} as before. A camera that a program "
                                                         "controls does not move: end that program.",
                                                         said, NetworkText(found->network)));
    }
    return fmt::format("stands at {} now, until it is switched off. {}.", NetworkText(found->network), said);
}

uint32_t AddressChange::Keep(const HeardCamera& target) const
{
    CameraEntry entry;
    entry.id = MacText(target.mac);
    entry.address = DottedAddress(target.network.address);
    if (const std::optional<CameraOwner> owner = AskForOwner(entry))
    {
        throw ToolFailure(ExitCode::CameraInUse, fmt::format("the camera {} is controlled by {}. End that program.",
                                                             entry.id, OwnerText(*owner)));
    }
    GvcpReader asked(entry.address);
    const std::optional<uint32_t> flags = asked.Read(kConfiguration);
    const bool controlled = flags && asked.Write(kControlPrivilege, kControl);
    if (!controlled)
    {
        throw asked.IsSilent()
            ? SilentCamera(entry, "it answered the search, but no read of a register")
            : ToolFailure(ExitCode::Failure, fmt::format("the camera {} does not give control", entry.id));
    }
    bool kept = true;
    if (!set.empty())
    {
        const Ipv4Network wanted = Wanted();
        kept = asked.Write(kPersistentAddress, wanted.address) && asked.Write(kPersistentMask, wanted.mask) &&
               asked.Write(kPersistentGateway, Gateway());
    }
    kept = kept && asked.Write(kConfiguration, (*flags & ~(kPersistent | kDhcp)) | Bit());
    if (!kept && asked.IsSilent())
    {
        throw SilentCamera(entry, "it answered until its address was written, which it may keep or not");
    }
    const uint32_t interfaces = asked.Read(kInterfaces).value_or(1) & 7;
    asked.Write(kControlPrivilege, 0);
    if (!kept)
    {
        throw ToolFailure(ExitCode::Failure,
                          fmt::format("the camera {} refused a register of its address; `nq-gev ip` shows how it "
                                      "stands",
                                      entry.id));
    }
    return interfaces;
}

} // namespace nq::tool
