// SPDX-License-Identifier: Apache-2.0
// nq-gev convert: makes pictures of what grab recorded.
#include "convert.h"
#include "name_pattern.h"
#include "picture_files.h"
#include "printable.h"
#include "stop_signals.h"
#include "verbs.h"
#include "whole_number.h"
#include "words.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

namespace nq::tool
{

namespace
{

constexpr uint64_t kMostPixels = 1'000'000; // a side

void Tell(const std::string& problem)
{
    fmt::print(stderr, "nq-gev: {}\n", Printable(problem));
}

nlohmann::ordered_json JsonOf(const ConvertedFile& file)
{
    nlohmann::ordered_json pictures = nlohmann::ordered_json::array();
    for (const ConvertedPicture& picture : file.pictures)
    {
        pictures.push_back({{"file", picture.path},
                            {"id", picture.frameId},
                            {"width", picture.form.width},
                            {"height", picture.form.height},
                            {"pixel_format", fmt::format("0x{:08x}", picture.form.pixelFormat)}});
    }
    return {{"file", file.file}, {"pictures", pictures}, {"problem", file.problem}};
}

/// A result for each file, and the whole: what was not converted is told at once.
ExitCode ConvertAll(const CommonOptions& common, const ConvertOptions& options)
{
    CatchStopSignals();
    Converter converter(options);
    size_t problems = 0;
    for (const size_t line : converter.UnusableLines())
    {
        Tell(fmt::format("{}:{}: tells of no frame", options.metadata, line));
        ++problems;
    }
    nlohmann::ordered_json files = nlohmann::ordered_json::array();
    size_t pictures = 0;
    for (size_t at = 0; at < options.files.size() && !StopAsked(); ++at)
    {
        const ConvertedFile file = converter.Convert(options.files[at]);
        pictures += file.pictures.size();
        if (!file.problem.empty())
        {
            Tell(file.file + ": " + file.problem);
            ++problems;
        }
        if (common.json)
        {
            files.push_back(JsonOf(file));
        }
    }
    const nlohmann::ordered_json all = {{"pictures", pictures}, {"problems", problems}, {"files", files}};
    fmt::print("{}\n", common.json ? all.dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace)
                                   : fmt::format("pictures   {}\nfiles      {}\nproblems   {}", pictures,
                                                 options.files.size(), problems));
    return StopAsked() ? StopCode() : problems != 0 ? ExitCode::Failure : ExitCode::Success;
}

/// The format by its name, or by its number as the lines of --metadata have it.
uint64_t FormatFrom(const std::string& text)
{
    char* end = nullptr;
    const uint64_t number = std::strtoull(text.c_str(), &end, 16);
    const bool isNumber = text.starts_with("0x") && end == text.c_str() + text.size();
    const std::optional<uint64_t> format = isNumber ? number : PixelFormatOf(text);
    if (!format || !HasForm(*format))
    {
        throw CLI::ValidationError("--pixel-format", "has no form as a picture: " + text +
                                                         "; it takes names as Mono8, BayerRG12p and RGB8, and numbers "
                                                         "as 0x01080001");
    }
    return *format;
}

} // namespace

void AddConvertVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* const verb = app.add_subcommand("convert", "Make pictures of raw and GenDC files that grab wrote");
    auto options = std::make_shared<ConvertOptions>();
    auto format = std::make_shared<std::string>();
    std::map<std::string, PictureFormat> formats = {{"png", PictureFormat::Png}};
    if (kWithTiff)
    {
        formats.emplace("tiff", PictureFormat::Tiff);
    }
    verb->add_option("FILE", options->files, "Files with frames as the camera sent them")->required();
    verb->add_option("--out", options->pictures.out, "Folder for the pictures (default: that of each file)");
    verb->add_option("--format", options->pictures.format, "How pictures are written: png or tiff")
        ->transform(OneOf(formats, kWithTiff ? "png or tiff" : "png"))
        ->default_str("png");
    verb->add_option("--name", options->pictures.name, "Names of the pictures: {file} and {id} are filled in")
        ->check([](const std::string& pattern) { return WhyNoPatternOfFiles(pattern); })
        ->default_str("{file}; of a file with several {file}-{id}");
    verb->add_flag("--overwrite", options->pictures.overwrite, "Replace files that are there already");
    verb->add_flag("--debayer", options->pictures.debayer, "Write the mosaic of a Bayer format as colours");
    verb->add_option("--metadata", options->metadata,
                     "File of grab --metadata, which tells size and format of raw files");
    CLI::Option* const width =
        verb->add_option("--width", options->raw.width, "Columns of raw files without such a line")
            ->check(WholeNumber(1, kMostPixels));
    CLI::Option* const height =
        verb->add_option("--height", options->raw.height, "Their rows")->check(WholeNumber(1, kMostPixels));
    CLI::Option* const pixels = verb->add_option("--pixel-format", *format, "Their pixels: Mono8, or as 0x01080001");
    width->needs(height)->needs(pixels);
    height->needs(width);
    pixels->needs(width);
    verb->callback([&, options, format] {
        options->raw.pixelFormat = format->empty() ? 0 : FormatFrom(*format);
        chosen = [&common, options] { return ConvertAll(common, *options); };
    });
}

} // namespace nq::tool
