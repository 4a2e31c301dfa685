// SPDX-License-Identifier: Apache-2.0
// The parts of a summary that every verb which takes frames prints.
#include "grab_summary.h"

#include "printable.h"

#include <fmt/format.h>
#include <unistd.h>

namespace nq::tool
{

namespace
{

const char* OriginOfBuffers(const GrabOptions& options)
{
    return options.announce ? "consumer-announced" : "library-allocated";
}

} // namespace

std::string SourceText(const GrabOptions& options, const CameraGrab& grab)
{
    return fmt::format("camera     {}\nproducer   {}\nbuffers    {} {}\n", Printable(grab.Found().camera.id),
                       Printable(grab.Found().producer), options.buffers, OriginOfBuffers(options));
}

void AddSource(nlohmann::ordered_json& summary, const GrabOptions& options, const CameraGrab& grab)
{
    summary["camera"] = grab.Found().camera.id;
    summary["producer"] = grab.Found().producer;
    summary["buffers"] = options.buffers;
    summary["buffer_origin"] = OriginOfBuffers(options);
    if (options.verify)
    {
        summary["wrong_bytes"] = grab.Totals().wrongBytes;
    }
}

std::string VerifiedText(const GrabOptions& options, const GrabTotals& totals)
{
    return options.verify ? fmt::format("wrong      {} bytes\n", totals.wrongBytes) : std::string();
}

void PrintBehindProgress(std::FILE* file, const std::string& text)
{
    if (isatty(STDERR_FILENO) != 0)
    {
        fmt::print(stderr, "\r\033[K");
    }
    fmt::print(file, "{}", text);
}

} // namespace nq::tool
