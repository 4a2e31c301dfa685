// SPDX-License-Identifier: Apache-2.0
// nq-gev view: a page that shows cameras live.
#include "camera_choice.h"
#include "grab_options.h"
#include "network_adapters.h"
#include "stop_signals.h"
#include "verbs.h"
#include "view/gate.h"
#include "view/http_server.h"
#include "view/site.h"
#include "whole_number.h"
#include "words.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <arpa/inet.h>
#include <fmt/format.h>
#include <map>
#include <netinet/in.h>
#include <poll.h>
#include <tuple>

namespace nq::tool
{

namespace
{

using namespace view;

struct ViewOptions
{
    std::vector<std::string> cameras; ///< what names each; empty for the only one
    bool allCameras = false;
    std::string listen = "127.0.0.1";
    uint16_t port = 0; ///< 0 for one that is free
    size_t buffers = 16;
    PictureOptions pictures;
};

bool IsLoopback(const std::string& address)
{
    in_addr parsed{};
    return inet_pton(AF_INET, address.c_str(), &parsed) == 1 && ntohl(parsed.s_addr) >> 24 == 127;
}

/// The addresses under which others find a server on this one.
std::vector<std::string> AddressesOf(const std::string& listen)
{
    if (listen != "0.0.0.0")
    {
        return {listen};
    }
    std::vector<std::string> all = {"127.0.0.1"};
    for (const Adapter& adapter : FindAdapters())
    {
        for (const Ipv4Network& network : adapter.networks)
        {
            const std::string address = DottedAddress(network.address);
            if (adapter.up && !IsLoopback(address))
            {
                all.push_back(address);
            }
        }
    }
    return all;
}

void TellWhere(const CommonOptions& common, const ViewOptions& options, uint16_t port, const std::string& token)
{
    nlohmann::ordered_json urls = nlohmann::ordered_json::array();
    for (const std::string& address : AddressesOf(options.listen))
    {
        urls.push_back(fmt::format("http://{}:{}/{}/", address, port, token));
    }
    if (common.json)
    {
        fmt::print("{}\n", nlohmann::ordered_json{{"urls", urls}}.dump());
    }
    else
    {
        for (const auto& url : urls)
        {
            fmt::print("{}\n", url.get<std::string>());
        }
    }
    std::fflush(stdout);
    if (!IsLoopback(options.listen))
    {
        fmt::print(stderr, "open to everybody on the network who knows the token in the address, and not encrypted\n");
    }
}

void AwaitStop(const HttpServer& server)
{
    constexpr int kSliceMs = 100;
    while (!StopAsked())
    {
        if (!server.IsListening())
        {
            throw ToolFailure(ExitCode::Failure, "the kernel takes no connections to the page any more");
        }
        poll(nullptr, 0, kSliceMs);
    }
}

ExitCode View(const CommonOptions& common, const ViewOptions& options)
{
    HttpServer server(options.listen, options.port);
    std::vector<FoundCamera> found = options.allCameras ? AllCameras(common) : ChooseCameras(common, options.cameras);
    if (options.allCameras) // the same order each time
    {
        std::sort(found.begin(), found.end(), [](const FoundCamera& one, const FoundCamera& other) {
            return std::tie(one.camera.userName, one.camera.serial, one.camera.id) <
                   std::tie(other.camera.userName, other.camera.serial, other.camera.id);
        });
    }
    const std::vector<std::string> names = ShortNames(found);
    const std::string token = NewToken();
    ViewShare share;
    share.buffers = options.buffers;
    share.pictures = options.pictures;
    share.pictures.queuedBytes /= found.size();
    CatchStopSignals(); // from here on cameras may be held, which have to be given back
    Site::Cameras cameras;
    for (size_t at = 0; at < found.size(); ++at)
    {
        cameras.push_back(std::make_unique<ViewedCamera>(found[at], names[at], share));
    }
    Site site(common, token, cameras, share.bell);
    server.Start([&site](const httplib::Request& request,
                         httplib::Response& response) { return site.Answer(request, response); },
                 [&site](const httplib::Request& request, httplib::Response& response) {
                     site.AnswerWithBody(request, response);
                 });
    TellWhere(common, options, server.Port(), token);
    AwaitStop(server);
    server.Stop();
    return StopCode();
}

} // namespace

void AddViewVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* verb = app.add_subcommand("view", "Show cameras live in a browser");
    auto options = std::make_shared<ViewOptions>();
    options->pictures.out = "recordings";
    options->pictures.name = "frame-{id}";
    CLI::Option* const named =
        verb->add_option(
                "--camera", options->cameras,
                "Id, serial number, user-defined name, MAC or IP address (default: the only one); once for each "
                "of several")
            ->allow_extra_args(false);
    verb->add_flag("--all-cameras", options->allCameras, "Show every camera that answers")->excludes(named);
    verb->add_option("--port", options->port, "TCP port of the page (default: one that is free)")
        ->check(WholeNumber(1, 65535));
    verb->add_option("--listen", options->listen,
                     "IPv4 address to listen on; any other than a loopback one opens the page to everybody who knows "
                     "the token")
        ->capture_default_str();
    verb->add_option("--buffers", options->buffers, "Number of buffers")
        ->check(WholeNumber(1, kMostBuffers))
        ->capture_default_str();
    verb->add_option("--out", options->pictures.out, "Folder for recordings, each of which gets one of its own")
        ->capture_default_str();
    const std::map<std::string, PictureFormat> formats = {{"png", PictureFormat::Png}, {"raw", PictureFormat::Raw}};
    verb->add_option("--format", options->pictures.format,
                     "How recordings are written: png, or raw (as the camera sends)")
        ->transform(OneOf(formats, "png or raw"))
        ->default_str("png");
    verb->callback([&, options] { chosen = [&common, options] { return View(common, *options); }; });
}

} // namespace nq::tool
