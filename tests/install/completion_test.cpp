// SPDX-License-Identifier: Apache-2.0
// What a shell makes of a key at the programs: verbs, options, values, and cameras that were listed before.
#include "support/command_output.h"
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <csignal>
#include <gmock/gmock.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::HasSubstr;
using testing::Not;

const std::string kScripts = NQ_BINARY_DIR "/completion/";

/// A user with a cache of cameras, and shells that print what nq-gev would have been called with.
class Completion : public testing::Test
{
  protected:
    Completion()
    {
        fs::create_directories(m_home / "cache/nq-gev");
        Write("cache/nq-gev/cameras", "02:00:0A:4D:00:01\tNQ-GEV-Camera NQ000001\n10.77.0.1\tNQ-GEV-Camera NQ000001\n"
                                      "left camera\tNQ-GEV-Camera NQ000001\n");
        const std::string stubs = "for program in nq-gev nq-gev-camera gentl-check; do eval \"$program() { got "
                                  "\\\"\\$@\\\"; }\"; done\n";
        Write(".bashrc", "got() { local IFS='|'; printf 'got<%s>\\n' \"$*\"; }\n" + stubs +
                             "for program in nq-gev nq-gev-camera gentl-check; do . '" + kScripts +
                             "'$program.bash; done\nPS1='ready$ '\n");
        Write(".zshrc", "got() { local IFS='|'; printf 'got<%s>\\n' \"$*\"; }\n" + stubs + "fpath=('" + m_home.Path() +
                            "/functions' $fpath)\nautoload -Uz compinit\ncompinit -u -d '" + m_home.Path() +
                            "/dump'\nPS1='ready$ '\n");
        fs::create_directory(m_home / "functions");
        for (const char* program : {"nq-gev", "nq-gev-camera", "gentl-check"})
        {
            fs::copy_file(kScripts + program + ".zsh", m_home / "functions" + "/_" + program);
        }
    }

    void Write(const std::string& name, const std::string& text) const { std::ofstream(m_home / name) << text; }

    std::vector<std::string> Environment() const
    {
        return {"HOME=" + m_home.Path(), "ZDOTDIR=" + m_home.Path(), "XDG_CACHE_HOME=" + (m_home / "cache"),
                "TERM=xterm", "LC_ALL=C.UTF-8"};
    }

    /// The words behind the program's name, with | between, after the line was typed and Enter pressed.
    std::string Typed(const std::string& shell, const std::string& line) const
    {
        std::vector<std::string> command = {"/usr/bin/python3", NQ_SOURCE_DIR "/tests/install/type_line.py", line,
                                            shell};
        if (shell == "bash")
        {
            command = Joined(command, {"--rcfile", m_home / ".bashrc"});
        }
        const Outcome outcome = RunProgram(Joined(command, {"-i"}), Environment());
        EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
        return outcome.output.substr(0, outcome.output.find('\n'));
    }

    /// What fish would offer for the line.
    std::string Offered(const std::string& program, const std::string& line) const
    {
        return RunProgram({"/usr/bin/fish", "--no-config", "-c",
                           "source '" + kScripts + program + ".fish'; complete -C '" + line + "' | cut -f 1"},
                          Environment())
            .output;
    }

    const TemporaryFolder m_home;
};

class TypedCompletion : public Completion, public testing::WithParamInterface<std::string>
{
  protected:
    void SetUp() override
    {
        if (!fs::exists("/usr/bin/" + GetParam()))
        {
            GTEST_SKIP() << "no " << GetParam() << " here";
        }
    }

    std::string Typed(const std::string& line) const { return Completion::Typed(GetParam(), line); }
};

TEST_P(TypedCompletion, KnowsVerbsAndTheOptionsOfEach)
{
    EXPECT_EQ(Typed("nq-gev gra\t"), "grab");
    EXPECT_EQ(Typed("nq-gev --answers stated gra\t--dura\t"), "--answers|stated|grab|--duration");
    EXPECT_EQ(Typed("nq-gev list --js\t"), "list|--json");
    EXPECT_EQ(Typed("nq-gev list --dura\t"), "list|--dura");
}

TEST_P(TypedCompletion, KnowsWhatAnOptionTakes)
{
    EXPECT_EQ(Typed("nq-gev --answers state\tgra\t--format ti\t"), "--answers|stated|grab|--format|tiff");
    EXPECT_EQ(Typed("nq-gev get --module in\tWidth"), "get|--module|interface|Width");
    EXPECT_EQ(Typed("nq-gev-camera --pattern FrameC\t"), "--pattern|FrameCounter");
}

TEST_P(TypedCompletion, KnowsCamerasOfTheLastList)
{
    EXPECT_EQ(Typed("nq-gev grab --camera le\t--count 1"), "grab|--camera|left camera|--count|1");
    EXPECT_EQ(Typed("nq-gev get --camera 10\tWidth"), "get|--camera|10.77.0.1|Width");
    EXPECT_EQ(Typed("nq-gev get --camera 02:00:0A\tWidth"), "get|--camera|02:00:0A:4D:00:01|Width");
}

TEST_P(TypedCompletion, OffersFilesWhereAFileIsMeant)
{
    Write("settings.txt", "");
    EXPECT_EQ(Typed("nq-gev load " + m_home.Path() + "/setti\t--wait 1"),
              "load|" + m_home.Path() + "/settings.txt|--wait|1");
    EXPECT_EQ(Typed("gentl-check --json " + m_home.Path() + "/setti\t"), "--json|" + m_home.Path() + "/settings.txt");
}

TEST_P(TypedCompletion, WithoutACacheOffersNoCameraAndSendsNothing)
{
    fs::remove_all(m_home / "cache");
    EXPECT_EQ(Typed("nq-gev grab --camera 10\t"), "grab|--camera|10");
}

INSTANTIATE_TEST_SUITE_P(Shell, TypedCompletion, testing::Values("bash", "zsh"),
                         [](const auto& tested) { return tested.param; });

TEST_F(Completion, OfFishKnowsVerbsOptionsValuesAndCameras)
{
    if (!fs::exists("/usr/bin/fish"))
    {
        GTEST_SKIP() << "no fish here";
    }
    EXPECT_EQ(Offered("nq-gev", "nq-gev gra"), "grab\n");
    EXPECT_EQ(Offered("nq-gev", "nq-gev grab --dura"), "--duration\n");
    EXPECT_EQ(Offered("nq-gev", "nq-gev list --dura"), "");
    EXPECT_EQ(Offered("nq-gev", "nq-gev grab --format "), "gendc\npng\nraw\ntiff\n");
    EXPECT_EQ(Offered("nq-gev", "nq-gev --answers "), "standard\nstated\n");
    EXPECT_EQ(Offered("nq-gev", "nq-gev grab --camera "), "02:00:0A:4D:00:01\n10.77.0.1\nleft camera\n");
    Write("settings.txt", "");
    EXPECT_EQ(Offered("nq-gev-camera", "nq-gev-camera --quie"), "--quiet\n");
    EXPECT_THAT(Offered("gentl-check", "gentl-check " + m_home.Path() + "/settin"), HasSubstr("/settings.txt\n"));
}

/// Verbs and options of --help that a script does not have.
std::vector<std::string> Missing(const std::string& program, const std::string& shell)
{
    const std::string script = BytesOf(kScripts + program + "." + shell);
    std::vector<std::string> missing;
    const std::string words = OutputOf(
        {"/bin/sh", "-c",
         "cd '" NQ_BINARY_DIR "'; p=./" + program +
             "; { $p --help; for verb in $($p --help | sed -n '/^Subcommands/,/^$/s/^  \\([a-z]*\\) .*/\\1/p'); "
             "do echo \"  $verb \"; $p $verb --help; done; } | sed -n 's/^  \\(-[^ =:]*\\).*/\\1/p;s/^  "
             "\\([a-z]*\\) $/\\1/p' | tr ',' '\\n' | sed 's/{.*//' | sort -u"});
    std::istringstream lines(words);
    for (std::string word; std::getline(lines, word);)
    {
        const std::string bare = shell == "fish" ? word.substr(word.find_first_not_of('-')) : word;
        if (script.find(bare) == std::string::npos)
        {
            missing.push_back(word);
        }
    }
    EXPECT_GT(words.size(), 100U) << words;
    return missing;
}

TEST(CompletionScripts, HaveEveryVerbAndEveryOptionOfTheHelp)
{
    for (const char* program : {"nq-gev", "nq-gev-camera", "gentl-check"})
    {
        for (const char* shell : {"bash", "zsh", "fish"})
        {
            EXPECT_THAT(Missing(program, shell), testing::IsEmpty()) << program << " " << shell;
        }
    }
}

TEST(CompletionScripts, AreNoSecretOfTheProgramsButNoOptionOfTheirHelp)
{
    for (const char* program : {"nq-gev", "nq-gev-camera", "gentl-check"})
    {
        EXPECT_THAT(OutputOf({NQ_BINARY_DIR "/" + std::string(program), "--help"}), Not(HasSubstr("--completion")));
        EXPECT_EQ(RunProgram({NQ_BINARY_DIR "/" + std::string(program), "--completion", "tcsh"}).exitCode, 2);
    }
}

TEST(CameraCache, HoldsWhatListFoundAndNothingThatAShellCouldTakeForACommand)
{
    Host wire;
    wire.Connect("host0", "10.77.0.1/24", "far0", "10.77.0.9/24");
    const TemporaryFolder home;
    ChildProcess camera({NQ_CAMERA_PATH, "--interface", "host0", "--user-name", "$(touch x)"});
    ASSERT_TRUE(camera.WaitForOutput("ready 10.77.0.1", kLongTime)) << camera.Output();
    const auto list = [](const std::vector<std::string>& environment) {
        return Heard([&] { return RunTool({"list"}, environment); });
    };
    EXPECT_EQ(list({"XDG_CACHE_HOME=" + home.Path()}).exitCode, 0);
    EXPECT_EQ(BytesOf(home / "nq-gev/cameras"), "10.77.0.1\tNQ-GEV-Camera NQ000001\n"
                                                "NQ-GEV-Camera:02-00-0a-4d-00-01\tNQ-GEV-Camera NQ000001\n"
                                                "NQ000001\tNQ-GEV-Camera NQ000001\n");
    EXPECT_EQ(list({"XDG_CACHE_HOME=", "HOME=" + home.Path()}).exitCode, 0);
    EXPECT_TRUE(fs::exists(home / ".cache/nq-gev/cameras"));
    EXPECT_EQ(OutputOf({"/usr/bin/find", home.Path(), "-name", "cameras.*"}), "");
    camera.Signal(SIGTERM);
    EXPECT_EQ(camera.WaitForExit(kLongTime), 0);
    EXPECT_EQ(RunTool({"list", "--timeout", "100"}, {"XDG_CACHE_HOME=" + home.Path()}).exitCode, 4);
    EXPECT_EQ(BytesOf(home / "nq-gev/cameras"), "");
}

TEST(CameraCache, ThatCannotBeWrittenIsNoFailure)
{
    Host wire;
    wire.Connect("host0", "10.77.0.1/24", "far0", "10.77.0.9/24");
    ChildProcess camera({NQ_CAMERA_PATH, "--interface", "host0"});
    ASSERT_TRUE(camera.WaitForOutput("ready 10.77.0.1", kLongTime)) << camera.Output();
    for (const char* place : {"XDG_CACHE_HOME=/proc/none", "XDG_CACHE_HOME=/dev/full"})
    {
        const Outcome outcome = Heard([&] { return RunTool({"list"}, {place}); });
        EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
        EXPECT_THAT(outcome.output, Not(HasSubstr("cache")));
    }
}

} // namespace
