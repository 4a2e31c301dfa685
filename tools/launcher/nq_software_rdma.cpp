// SPDX-License-Identifier: Apache-2.0
// nq-software-rdma COMMAND...: runs a command with the software RDMA of this project in front of the real one.
#include "nq_version.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;

constexpr const char* kLibrary = "libnq_rdma_loopback.so";
constexpr const char* kUsage =
    "nq-software-rdma COMMAND [ARGUMENT...]\n"
    "Runs a command with RDMA made of software: no RDMA device, no kernel module and no root needed. The camera and "
    "the\n"
    "consumer have to run on it both, on this machine and as the same user.\n"
    "Exit codes: the command's; 125 no software RDMA, 126 the command cannot be run, 127 there is no such command.\n\n"
    "Example: nq-software-rdma arv-camera-test-0.8\n";

enum FailureCode : int
{
    NoSoftwareRdma = 125, // as env, nice and timeout have them
    CannotRun = 126,
    NoCommand = 127,
};

int Fail(int code, const std::string& text)
{
    std::fprintf(stderr, "nq-software-rdma: %s\n", text.c_str());
    return code;
}

std::string ReasonOf(int error)
{
    return std::generic_category().message(error);
}

/// The library beside this program, as a build leaves it, or below lib/ beside bin/; empty when it is in none of them.
fs::path FindLibrary()
{
    std::error_code ignored;
    const fs::path here = fs::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const char* folder : {".", "../lib/nq-gev", "../lib", "../lib/x86_64-linux-gnu", "../lib64"})
    {
        fs::path path = fs::weakly_canonical(here / folder / kLibrary, ignored);
        if (fs::is_regular_file(path, ignored))
        {
            return path;
        }
    }
    return {};
}

/// Puts the library behind what is preloaded already: a sanitizer's run-time wants to be first.
void Preload(const std::string& library)
{
    const char* preloaded = std::getenv("LD_PRELOAD");
    const std::string before = preloaded == nullptr || *preloaded == '\0' ? "" : std::string(preloaded) + ":";
    setenv("LD_PRELOAD", (before + library).c_str(), 1);
}

int Execute(char** command)
{
    execvp(command[0], command);
    return Fail(errno == ENOENT ? NoCommand : CannotRun, std::string(command[0]) + ": " + ReasonOf(errno));
}

/// A folder of this user alone with a link to the library. Removed with the object.
class PrivateLink
{
  public:
    explicit PrivateLink(const fs::path& library)
    {
        char folder[] = "/tmp/nq-software-rdma-XXXXXX";
        if (mkdtemp(folder) == nullptr)
        {
            throw std::system_error(errno, std::generic_category(), "a folder in /tmp");
        }
        m_folder = folder;
        try
        {
            fs::create_symlink(library, Path());
        }
        catch (...)
        {
            Remove();
            throw;
        }
    }
    ~PrivateLink() { Remove(); }
    PrivateLink(const PrivateLink&) = delete;
    PrivateLink& operator=(const PrivateLink&) = delete;

    fs::path Path() const { return m_folder / kLibrary; }

  private:
    void Remove() const
    {
        std::error_code ignored;
        fs::remove(Path(), ignored);
        fs::remove(m_folder, ignored);
    }

    fs::path m_folder;
};

/// Hands signals on to the child until it ends. Its exit code, or 128 plus the number of the signal that ended it.
int WaitFor(pid_t child, const sigset_t& watched)
{
    for (;;)
    {
        siginfo_t info{};
        const int number = sigwaitinfo(&watched, &info);
        int status = 0;
        if (number == SIGCHLD && waitpid(child, &status, WNOHANG) == child)
        {
            return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        }
        // One from the terminal reaches the child by itself: it is of the same group.
        if (number > 0 && number != SIGCHLD && info.si_code != SI_KERNEL)
        {
            kill(child, number);
        }
    }
}

/// Runs the command by a link of a name that LD_PRELOAD does not split, and removes the link when the command has
/// ended.
int RunByLink(const fs::path& library, char** command)
{
    const PrivateLink link(library);
    Preload(link.Path());
    std::signal(SIGCHLD, SIG_DFL); // where it is ignored, as a parent may have left it, no child's end is told
    sigset_t watched;
    sigset_t before;
    sigemptyset(&watched);
    for (const int number : {SIGCHLD, SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGUSR1, SIGUSR2})
    {
        sigaddset(&watched, number);
    }
    sigprocmask(SIG_BLOCK, &watched, &before);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        sigprocmask(SIG_SETMASK, &before, nullptr);
        _exit(getppid() == parent ? Execute(command) : CannotRun);
    }
    return child < 0 ? Fail(CannotRun, ReasonOf(errno)) : WaitFor(child, watched);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
    {
        std::fputs(kUsage, stderr);
        return 2;
    }
    const std::string_view first = argv[1];
    if (first == "--help" || first == "-h" || first == "--version")
    {
        const char* answer = first == "--version" ? NQ_VERSION_TEXT("nq-software-rdma") "\n" : kUsage;
        const bool written = std::fputs(answer, stdout) >= 0 && std::fflush(stdout) == 0;
        return written ? 0 : Fail(1, "cannot write the output: " + ReasonOf(errno));
    }
    const fs::path library = FindLibrary();
    if (library.empty())
    {
        return Fail(NoSoftwareRdma,
                    std::string(kLibrary) +
                        " is neither beside this program nor in ../lib: build the target nq_rdma_loopback");
    }
    // The loader splits LD_PRELOAD at spaces and colons, and replaces words such as $ORIGIN.
    if (library.native().find_first_of(" :$") == std::string::npos)
    {
        Preload(library);
        return Execute(argv + 1);
    }
    try
    {
        return RunByLink(library, argv + 1);
    }
    catch (const std::exception& failure)
    {
        return Fail(NoSoftwareRdma, failure.what());
    }
}
