// SPDX-License-Identifier: Apache-2.0
// A camera that answers a search and is silent then: every verb names it, with the line that looks for the reason.
#include "support/gvcp_camera.h"
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>

namespace
{

using namespace nq::test;
using testing::HasSubstr;

/// A camera made of a socket, at 10.9.0.2, that goes silent when it was found.
class ToolSilentAddress : public testing::Test
{
  protected:
    ToolSilentAddress()
    {
        m_far.Connect("here", "10.9.0.1/24", "there", "10.9.0.2/24");
        m_camera = std::make_unique<GvcpCamera>(&m_far);
        GvcpDiscovery identity;
        identity.ipAddress = 0x0A090002;
        identity.subnetMask = 0xFFFFFF00;
        identity.deviceVersion = "3.0.0";
        m_camera->SetDiscovery(identity);
        m_camera->AwaitPath("10.9.0.1");
    }

    /// Has it answer `m_answers` discoveries, and nothing else.
    void AnswerDiscoveries()
    {
        m_camera->Otherwise([this](const Bytes& command) {
            const bool answers = gvcp::Describe(command) == "discovery" && m_answers-- > 0;
            return answers ? m_camera->AnswerFromMemory(command) : std::vector<GvcpReply>();
        });
    }

    const Host m_far;
    std::unique_ptr<GvcpCamera> m_camera;
    std::atomic<int> m_answers = 1000000;
};

class ToolSilent : public ToolSilentAddress, public testing::WithParamInterface<std::vector<std::string>>
{
};

TEST_P(ToolSilent, IsNamedByTheVerb)
{
    AnswerDiscoveries();
    const TemporaryFolder folder;
    std::ofstream(folder / "settings.txt") << "Width = 320\n";
    std::vector<std::string> arguments = Joined(GetParam(), {"--camera", "10.9.0.2"});
    std::replace(arguments.begin(), arguments.end(), std::string("FILE"), folder / "settings.txt");
    const auto says = HasSubstr("nq-gev: the camera Model:02-11-22-33-44-55 at 10.9.0.2 is silent: it answered the "
                                "search, but no read of a register, and cannot be opened: GC_ERR_INVALID_ID (-1007). "
                                "`nq-gev doctor --camera 10.9.0.2` tells more.\n");
    const Outcome outcome = InTime(says, [&] {
        m_answers = 1; // a busy machine may miss that one
        return RunTool(arguments);
    });
    EXPECT_THAT(outcome.output, says);
    EXPECT_EQ(outcome.exitCode, 6);
}

INSTANTIATE_TEST_SUITE_P(Verbs, ToolSilent,
                         testing::Values(std::vector<std::string>{"get", "Width"},
                                         std::vector<std::string>{"set", "Width=320"},
                                         std::vector<std::string>{"load", "FILE"}, std::vector<std::string>{"xml"},
                                         std::vector<std::string>{"events"}, std::vector<std::string>{"grab"}),
                         [](const auto& verb) { return verb.param.front(); });

TEST_F(ToolSilentAddress, IsNamedByIpBeforeItChangesAnything)
{
    AnswerDiscoveries();
    const Outcome outcome = RunProgram({NQ_TOOL_PATH, "--timeout", "2500", "ip", "--yes", "--set", "10.9.0.9/24"});
    EXPECT_EQ(outcome.exitCode, 6);
    EXPECT_THAT(outcome.output,
                HasSubstr("nq-gev: the camera 02:11:22:33:44:55 at 10.9.0.2 is silent: it answered the search, but no "
                          "read of a register. `nq-gev doctor --camera 10.9.0.2` tells more.\n"));
    EXPECT_EQ(m_camera->Count("write 0x064C = 0x0A090009"), 0U);
}

TEST_F(ToolSilentAddress, IsNamedByIpWhereTheChangeMayBeHalfDone)
{
    m_camera->Otherwise([this](const Bytes& command) {
        return gvcp::Describe(command).starts_with("write 0x065C") ? std::vector<GvcpReply>()
                                                                   : m_camera->AnswerFromMemory(command);
    });
    const Outcome outcome = RunProgram({NQ_TOOL_PATH, "--timeout", "2500", "ip", "--yes", "--set", "10.9.0.9/24"});
    EXPECT_EQ(outcome.exitCode, 6);
    EXPECT_THAT(outcome.output,
                HasSubstr("nq-gev: the camera 02:11:22:33:44:55 at 10.9.0.2 is silent: it answered until its address "
                          "was written, which it may keep or not. `nq-gev doctor --camera 10.9.0.2` tells more.\n"));
    EXPECT_EQ(m_camera->GetRegister(0x064C), 0x0A090009U);
}

TEST_F(ToolSilentAddress, ThatIsForcedAndNotHeardAnyMore)
{
    // It takes the command, and answers nothing from then on.
    m_camera->Otherwise([this](const Bytes& command) {
        const bool forced = command.size() > 3 && command[3] == 0x04;
        m_answers = forced ? 0 : m_answers.load();
        return m_answers > 0 ? m_camera->AnswerFromMemory(command) : std::vector<GvcpReply>();
    });
    const Outcome outcome = RunProgram(
        {NQ_TOOL_PATH, "--timeout", "2500", "ip", "--yes", "--camera", "02:11:22:33:44:55", "--force", "10.9.0.9/24"});
    EXPECT_EQ(outcome.exitCode, 6);
    EXPECT_THAT(outcome.output,
                HasSubstr("nq-gev: The camera did not answer the command, and is silent now. `nq-gev doctor --camera "
                          "02:11:22:33:44:55` tells more.\n"));
}

} // namespace
