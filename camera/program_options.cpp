// SPDX-License-Identifier: Apache-2.0
// The command line of nq-gev-camera.
#include "program_options.h"

#include "camera_state.h"
#include "completion.h"
#include "fault_plan.h"
#include "feature_table.h"
#include "image_files.h"
#include "nq_version.h"
#include "picture_painter.h"
#include "udp_socket.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <span>
#include <stdexcept>
#include <system_error>

namespace nq::camera
{

namespace
{

/// Options as they are typed, before they are checked against each other.
struct Typed
{
    ProgramOptions program;
    CameraOptions camera;
    std::string address;
    std::string interface;
    std::string mac;
    std::string pixelFormat = "Mono8";
    std::string images;
    unsigned count = 1;
};

std::string Footer()
{
    std::string text = "MovingRamp, the default picture, can be checked byte by byte:\n"
                       "  value(x, y, c) = (x + y + 7 * frameId + 85 * c) modulo levels\n"
                       "  x, y from the upper left corner; c = 0 but for green (1) and blue (2) of RGB8 and BGR8 and\n"
                       "  the differences of blue (1) and red (2) of YUV422_8; levels 256 for 8 bits, 1024 for 10,\n"
                       "  4096 for 12 and 65536 for 16, the low byte first\n\n"
                       "Faults, with their default ARG and COUNT (0: until cleared):\n";
    for (const FaultInfo& fault : kFaults)
    {
        text += "  " + std::string(fault.name) + ":" + std::to_string(fault.argument) + ":" +
                std::to_string(fault.count) + "\n      " + fault.help + "\n";
    }
    return text + "\n" + FeaturesAsHelp() +
           "\nExit codes: 0 ended by ^C or SIGTERM, 1 failure, 2 wrong arguments.\n"
           "\nExamples:\n"
           "  nq-gev-camera --software-rdma --interface eth0\n"
           "  nq-gev-camera --address 10.9.0.2 --width 1920 --height 1080 --fps 60\n"
           "  nq-gev-camera --interface eth1 --fault short-frame:100:3 --control camera.sock\n";
}

std::uint64_t ParseMac(const std::string& text)
{
    std::string digits;
    for (const char c : text)
    {
        if (c != ':' && c != '-')
        {
            digits += c;
        }
    }
    std::uint64_t mac = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), mac, 16);
    if (digits.size() != 12 || error != std::errc{} || end != digits.data() + digits.size())
    {
        throw std::invalid_argument("'" + text + "' is no MAC address");
    }
    return mac;
}

/// A serial number for the i-th camera: its last digits count on.
std::string CountedSerial(const std::string& first, unsigned i)
{
    const std::size_t digits = first.size() - (first.find_last_not_of("0123456789") + 1);
    const std::size_t kept = first.size() - std::min<std::size_t>(digits, 9);
    const std::string tail = first.substr(kept);
    std::string number = std::to_string((tail.empty() ? 0 : std::stoul(tail)) + i);
    if (number.size() < tail.size())
    {
        number.insert(0, tail.size() - number.size(), '0');
    }
    return i == 0 ? first : first.substr(0, kept) + number;
}

void DefinePlace(CLI::App& app, Typed& typed)
{
    auto* address = app.add_option("--address", typed.address, "IPv4 address of the camera, one of this machine's");
    app.add_option("--interface", typed.interface, "network interface whose first address the camera takes")
        ->excludes(address);
    app.add_option("--count", typed.count, "number of cameras; the i-th takes the address plus i")
        ->check(CLI::Range(1, 250));
}

/// Puts the number of a pattern in the place of its name.
CLI::Validator PatternName()
{
    const std::span<const FeatureEntry> entries = FeatureByName("TestPattern").entries;
    std::string names;
    for (const FeatureEntry& entry : entries)
    {
        names += names.empty() ? "" : &entry == &entries.back() ? " or " : ", ";
        names += entry.name;
    }
    const auto replace = [entries, names](std::string& text) {
        const auto named = [&text](const FeatureEntry& entry) { return entry.name == text; };
        const auto found = std::find_if(entries.begin(), entries.end(), named);
        if (found == entries.end())
        {
            return "takes " + names + ", not \"" + text + "\"";
        }
        text = std::to_string(found->value);
        return std::string();
    };
    return {replace, names};
}

void DefinePicture(CLI::App& app, Typed& typed)
{
    CameraOptions& camera = typed.camera;
    app.add_option("--width", camera.width, "pixels per line")->check(CLI::Range(1, 65535))->capture_default_str();
    app.add_option("--height", camera.height, "lines")->check(CLI::Range(1, 65535))->capture_default_str();
    app.add_option("--width-step", camera.widthStep,
                   "pixels by which Width and OffsetX go; --width is a multiple of it")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    app.add_option(
           "--pixel-format", typed.pixelFormat,
           "format of the pixels: Mono8, Mono10, Mono12, Mono16, BayerRG8, RGB8, Mono10p, Mono12p, BayerRG12, BGR8 or "
           "YUV422_8")
        ->capture_default_str();
    app.add_option(
           "--pattern", camera.pattern,
           "picture: MovingRamp, ColorBar, Noise, Scene, parts on a belt, or another of the feature TestPattern")
        ->transform(PatternName());
    app.add_option("--images", typed.images,
                   "folder of PNG files that Scene, then the pattern at power on, shows one after the other")
        ->excludes("--pattern");
}

void DefineStream(CLI::App& app, CameraOptions& camera)
{
    app.add_option("--fps", camera.frameRate,
                   "frames per second, 0.001 to 100000; 0 is as fast as the host grants credits")
        ->capture_default_str();
    app.add_option("--exposure", camera.exposure,
                   "exposure time at power on in microseconds; the light is such that the pictures are right at it")
        ->check([](const std::string& text) { // a range takes what is no number
            return std::isfinite(std::strtod(text.c_str(), nullptr)) ? "" : "'" + text + "' is no number";
        })
        ->check(CLI::Range(1.0, 10000000.0))
        ->capture_default_str();
    app.add_option("--frames", camera.frameLimit, "fall quiet after this many frames; 0 is never")
        ->check([](const std::string& number) { return std::string(number.starts_with('-') ? "below 0" : ""); });
    app.add_flag("--free-run,!--no-free-run", camera.freeRun,
                 "enabling the stream starts a continuous acquisition (default); without it AcquisitionStart does");
    app.add_option("--send-buffers", camera.sendBuffers, "frames that may be on their way at once")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
}

void DefineIdentity(CLI::App& app, Typed& typed)
{
    CameraOptions& camera = typed.camera;
    app.add_option("--vendor", camera.vendor, "manufacturer name, up to 32 bytes")->capture_default_str();
    app.add_option("--model", camera.model, "model name, up to 32 bytes")->capture_default_str();
    app.add_option("--device-version", camera.deviceVersion,
                   "device version text; some hosts skip versions below 3.0.0")
        ->capture_default_str();
    app.add_option("--serial", camera.serial, "serial number, up to 16 bytes; further cameras count on from it")
        ->capture_default_str();
    app.add_option("--user-name", camera.userName, "user-defined name, up to 16 bytes");
    app.add_option("--mac", typed.mac, "MAC address; the default is 02:00 and the four bytes of the address");
}

void DefineBehaviour(CLI::App& app, Typed& typed)
{
    app.add_option("--heartbeat", typed.camera.heartbeat, "heartbeat timeout in milliseconds at power on")
        ->check(CLI::Range(1, 3600000))
        ->capture_default_str();
    app.add_option(
           "--state", typed.camera.stateFile,
           "file that keeps user sets and DeviceUserID over a restart; with --count each camera has FILE.SERIAL")
        ->check([](const std::string& path) { return std::string(path.empty() ? "the path is empty" : ""); });
    app.add_option("--fault", typed.program.faults, "arm a fault: NAME[:ARG[:COUNT]]; may be given several times")
        ->take_all();
    app.add_option("--control", typed.program.control, "path of a UNIX socket for JSON commands")
        ->check([](const std::string& path) { return std::string(path.empty() ? "the path is empty" : ""); });
    app.add_flag("--software-rdma", typed.program.softwareRdma,
                 "stream by RDMA made of software, to hosts on this machine that do so too")
        ->disable_flag_override();
    app.add_flag("--quiet", typed.program.quiet, "print nothing but errors and the line \"ready ADDRESS\"");
}

/// In the order in which --help shows them.
void Define(CLI::App& app, Typed& typed)
{
    DefinePlace(app, typed);
    DefinePicture(app, typed);
    DefineStream(app, typed.camera);
    DefineIdentity(app, typed);
    DefineBehaviour(app, typed);
}

void CheckTexts(const CameraOptions& camera)
{
    const auto atMost = [](const char* option, const std::string& text, std::size_t bytes) {
        if (text.size() > bytes)
        {
            throw std::invalid_argument(std::string(option) + " is longer than " + std::to_string(bytes) + " bytes");
        }
    };
    atMost("--vendor", camera.vendor, 32);
    atMost("--model", camera.model, 32);
    atMost("--device-version", camera.deviceVersion, 32);
    atMost("--serial", camera.serial, 16);
    atMost("--user-name", camera.userName, 16);
}

PixelFormat FormatByName(const std::string& name)
{
    for (const PixelFormat& format : kPixelFormats)
    {
        if (name == format.name)
        {
            return format;
        }
    }
    throw std::invalid_argument("there is no pixel format '" + name + "'");
}

ProgramOptions Resolve(Typed& typed)
{
    if (typed.address.empty() && typed.interface.empty())
    {
        throw std::invalid_argument("one of --address and --interface is needed");
    }
    if (typed.camera.width % typed.camera.widthStep != 0)
    {
        throw std::invalid_argument("--width is no multiple of --width-step");
    }
    typed.camera.pixelFormat = FormatByName(typed.pixelFormat);
    const PictureSettings picture{typed.camera.width, typed.camera.height, typed.camera.pixelFormat, {}};
    if (picture.Payload() > 0x3FFFF000)
    {
        throw std::invalid_argument("a frame may not be larger than 1 GiB");
    }
    if (!typed.images.empty())
    {
        typed.camera.pattern = static_cast<std::uint32_t>(TestPattern::Scene);
        typed.camera.images = std::make_shared<const std::vector<RgbPicture>>(ReadImages(typed.images));
    }
    const double rate = typed.camera.frameRate;
    if (rate != 0 && !(rate >= 0.001 && rate <= 100000))
    {
        throw std::invalid_argument("--fps is neither 0 nor between 0.001 and 100000");
    }
    const LocalInterface first = typed.address.empty() ? FindInterfaceByName(typed.interface)
                                                       : FindInterfaceByAddress(ParseAddress(typed.address));
    for (unsigned i = 0; i < typed.count; ++i)
    {
        CameraOptions camera = typed.camera;
        camera.serial = CountedSerial(camera.serial, i);
        CheckTexts(camera);
        camera.network = i == 0 ? first : FindInterfaceByAddress(first.address + i);
        camera.mac = typed.mac.empty() ? 0x020000000000 | camera.network.address : ParseMac(typed.mac) + i;
        if (!camera.stateFile.empty())
        {
            camera.stateFile += typed.count == 1 ? "" : "." + camera.serial;
            NeedUsableState(camera.stateFile);
        }
        typed.program.cameras.push_back(std::move(camera));
    }
    FaultPlan check;
    for (const std::string& fault : typed.program.faults)
    {
        check.Arm(fault);
    }
    return std::move(typed.program);
}

} // namespace

std::optional<ProgramOptions> ReadCommandLine(int argc, char** argv, int& exitCode)
{
    CLI::App app("A virtual GigE Vision camera: GVCP control on UDP port 3956, frames by RDMA on port 4791.",
                 "nq-gev-camera");
    app.set_version_flag("--version", NQ_VERSION_TEXT("nq-gev-camera"), "print versions and the commit, and end");
    app.add_flag_callback(
        "--features",
        [] {
            std::cout << FeaturesAsMarkdown();
            throw CLI::Success();
        },
        "print what each feature does, as a Markdown text, and end");
    Typed typed;
    Define(app, typed);
    completion::AddCompletionOption(app);
    app.footer(Footer());
    try
    {
        app.parse(argc, argv);
        return Resolve(typed);
    }
    catch (const CLI::Success& answered) // --help, --version, --features
    {
        exitCode = app.exit(answered);
        if (!std::cout.flush())
        {
            std::cerr << "nq-gev-camera: cannot write the output: " << std::generic_category().message(errno) << "\n";
            exitCode = 1;
        }
    }
    catch (const std::exception& error)
    {
        std::cerr << "nq-gev-camera: " << error.what() << "\n";
        exitCode = 2;
    }
    return std::nullopt;
}

} // namespace nq::camera
