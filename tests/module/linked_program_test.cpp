// SPDX-License-Identifier: Apache-2.0
// An ordinary program that is linked with the library: both see one set of exported variables.
#include "support/command_output.h"
#include "support/gvcp_camera.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using namespace nq::test;
using testing::ContainsRegex;
using testing::ElementsAre;

namespace
{

TEST(LinkedProgram, HoldsTheVariablesItself)
{
    const std::string relocations = OutputOf({"/usr/bin/readelf", "-rW", NQ_LINKED_PROGRAM_PATH});
    for (const std::string name :
         {"g_mcMode", "g_hModule", "g_pFnInit", "g_pFnClose", "g_pFnRegisterModule", "g_pFnEnableFileLogging",
          "g_pFnEnableWindbg", "g_pFnSetGlobalDebugLevel", "g_pFnTraceA"})
    {
        EXPECT_THAT(relocations, ContainsRegex("R_X86_64_COPY.* " + name));
    }
}

TEST(LinkedProgram, SetsTheModeThatTheLibraryReadsAndReadsTheSlotsThatItSets)
{
    GvcpCamera camera;
    EXPECT_EQ(OutputOf({NQ_LINKED_PROGRAM_PATH, NQ_FAKE_LOGGER_PATH}), "mode 1: 0\n"
                                                                       "mode 2: 0\n"
                                                                       "mode 3: 0\n"
                                                                       "NQLInit 1\n"
                                                                       "g_hModule the library's\n"
                                                                       "g_pFnInit the library's\n"
                                                                       "g_pFnClose the library's\n"
                                                                       "g_pFnRegisterModule the library's\n"
                                                                       "g_pFnEnableFileLogging the library's\n"
                                                                       "g_pFnEnableWindbg the library's\n"
                                                                       "g_pFnSetGlobalDebugLevel the library's\n"
                                                                       "g_pFnTraceA the library's\n"
                                                                       "g_hModule null\n"
                                                                       "GCInitLib 0\n"
                                                                       "GCCloseLib 0\n");
    std::vector<Bytes> written;
    for (const Bytes& command : camera.ReceivedBytes())
    {
        written.emplace_back(command.begin() + 8, command.end());
    }
    EXPECT_THAT(written, ElementsAre(Bytes{0, 0, 0x0B, 0, 0, 0, 0, 2}, Bytes{0, 0, 0x0A, 0, 0, 0, 0, 0}))
        << "the write of mode 2 and the close";
}

TEST(LinkedProgram, ThatTakesTheAddressOfALoggingFunctionIsNoLoggingLibrary)
{
    EXPECT_EQ(OutputOf({NQ_LINKED_PROGRAM_PATH}), "return GetLastError();\n"
                                                  "OpenDLL ffffffff\n"
                                                  "NQLSetGlobalDebugLevel 0\n");
}

} // namespace
