// SPDX-License-Identifier: Apache-2.0
// The doctor's findings, by a process of its own.
#include "view/examination.h"

#include "exit_codes.h"
#include "stop_signals.h"

#include <csignal>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace nq::tool::view
{

namespace
{

constexpr int kPatienceMs = 60'000; ///< for each part of what it says
constexpr size_t kMost = size_t{1} << 20;

std::vector<std::string> WordsFor(const CommonOptions& common)
{
    std::vector<std::string> words = {"nq-gev", "--json", "--answers", common.answers};
    if (!common.producer.empty())
    {
        words.insert(words.end(), {"--producer", common.producer});
    }
    words.emplace_back("doctor");
    return words;
}

/// Starts this program again with its standard output at `pipe`. No memory is copied for that, which running streams
/// could not bear. -1 when it cannot be started.
pid_t Start(std::vector<std::string> words, int pipe)
{
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
    {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipe, STDOUT_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1); // connections of the page among them
    pid_t child = -1;
    const int refused = posix_spawn(&child, "/proc/self/exe", &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return refused == 0 ? child : -1;
}

/// False when it says nothing for too long, or this program is to end.
bool SaysMore(int pipe)
{
    constexpr int kSliceMs = 100;
    pollfd readable{pipe, POLLIN, 0};
    for (int waited = 0; waited < kPatienceMs && !StopAsked(); waited += kSliceMs)
    {
        if (poll(&readable, 1, kSliceMs) > 0)
        {
            return true;
        }
    }
    return false;
}

std::string HeardFrom(int pipe)
{
    std::string heard;
    char bytes[4096];
    while (heard.size() < kMost && SaysMore(pipe))
    {
        const ssize_t size = read(pipe, bytes, sizeof bytes);
        if (size <= 0)
        {
            break;
        }
        heard.append(bytes, static_cast<size_t>(size));
    }
    return heard;
}

} // namespace

nlohmann::ordered_json ExaminationJson(const CommonOptions& common)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
    {
        throw ToolFailure(ExitCode::Failure, "no pipe for the doctor");
    }
    const pid_t child = Start(WordsFor(common), ends[1]);
    close(ends[1]);
    const std::string heard = child < 0 ? "" : HeardFrom(ends[0]);
    close(ends[0]);
    if (child > 0)
    {
        kill(child, SIGKILL); // it has said all, or says nothing
        waitpid(child, nullptr, 0);
    }
    nlohmann::ordered_json examination = nlohmann::ordered_json::parse(heard, nullptr, false);
    if (!examination.is_object())
    {
        throw ToolFailure(ExitCode::Failure, "the doctor came to no end: see `nq-gev doctor`");
    }
    return examination;
}

} // namespace nq::tool::view
