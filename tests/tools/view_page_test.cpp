// SPDX-License-Identifier: Apache-2.0
// The page of nq-gev view in Chromium, in a namespace without routes, where nothing else can be loaded.
#include "support/temporary_folder.h"
#include "support/two_cameras.h"
#include "support/view.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>

namespace
{

using namespace nq::test;

/// What ./run view-test fetches by npm where that can be reached.
std::string AxeFile()
{
    const std::string path = NQ_SOURCE_DIR "/out/axe/node_modules/axe-core/axe.min.js";
    return std::filesystem::exists(path) ? path : "";
}

class ViewPage : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (NQ_SANITIZED)
        {
            GTEST_SKIP() << "the ordinary build opens the page; the other cases ask for all that it asks for";
        }
        std::filesystem::create_directories(kPictures);
    }

    /// What takes minutes, and an idle machine.
    static bool IsByHand() { return std::getenv("NQ_VIEW_TEST") != nullptr; }

    /// The script that uses the page; it leaves pictures of it.
    static std::vector<std::string> Browse(const View& view, const std::vector<std::string>& more = {})
    {
        return Joined({"/usr/bin/python3", NQ_SOURCE_DIR "/tests/tools/browse_view.py", view.Url(), kPictures}, more);
    }

    /// Fails unless the script finds everything right.
    static void ExpectRight(ChildProcess& browser)
    {
        const int code = browser.WaitForExit(std::chrono::seconds(280));
        if (code == 77)
        {
            GTEST_SKIP() << browser.Output();
        }
        EXPECT_EQ(code, 0) << browser.Output();
        std::cout << browser.Output();
    }

    inline static const std::string kPictures = NQ_SOURCE_DIR "/out/view";
    const std::vector<std::string> m_camera = {"--width", "320", "--height",       "240",
                                               "--fps",   "20",  "--send-buffers", "256"};
};

TEST_F(ViewPage, OpensAndShowsPicturesWithTheirIdsInTheirPixels)
{
    const VirtualCamera camera(m_camera);
    const View view({"--buffers", "200"}, camera.Environment());
    ChildProcess browser(Browse(view, {"once"}));
    ExpectRight(browser);
}

TEST_F(ViewPage, IsUsedByKeyboardAndShowsWhatHappens)
{
    if (!IsByHand())
    {
        GTEST_SKIP() << "./run view-test does it";
    }
    const TemporaryFolder folder;
    const VirtualCamera camera(m_camera);
    const View view({"--out", folder / "recordings", "--buffers", "200"}, camera.Environment());
    std::vector<std::string> more = {camera.ControlPath()};
    if (!AxeFile().empty())
    {
        more.push_back(AxeFile());
    }
    ChildProcess browser(Browse(view, more));
    ExpectRight(browser);
    if (AxeFile().empty() && !IsSkipped())
    {
        GTEST_SKIP() << "axe-core is not there (npm): the page was used, and not examined by it";
    }
}

TEST_F(ViewPage, ShowsTwoCamerasAndOneThatIsLostAndBack)
{
    if (!IsByHand())
    {
        GTEST_SKIP() << "./run view-test does it";
    }
    TwoCameras cameras({"--width", "320", "--height", "240", "--fps", "20", "--pattern", "Scene"});
    const View view({"--all-cameras"}, cameras.Environment());
    ChildProcess browser(Browse(view));
    if (browser.WaitForOutput("take it\n", kLongTime))
    {
        cameras.First().Kill();
        browser.WaitForOutput("bring it back\n", kLongTime);
        cameras.First().Start();
    }
    ExpectRight(browser);
}

} // namespace
