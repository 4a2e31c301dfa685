// SPDX-License-Identifier: Apache-2.0
// The commit that a build says it was made of, wherever its source came from.
#include "support/command_output.h"
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gmock/gmock.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::HasSubstr;

/// A source tree of the two files that the commit is written by, and the header made of it.
class SourceTree : public testing::Test
{
  protected:
    SourceTree() { MakeTree(m_folder.Path()); }

    static void MakeTree(const fs::path& folder)
    {
        fs::create_directories(folder / "cmake");
        for (const char* name : {"cmake/nq_version.h.in", ".gitattributes"})
        {
            fs::copy_file(fs::path(NQ_SOURCE_DIR) / name, folder / name);
        }
        // As it is in a checkout; in an archive, where these cases run as well, it is the commit already.
        std::ofstream(folder / "cmake/commit.txt") << "$Format:%h$\n";
    }

    static void Git(const std::string& folder, const std::string& command)
    {
        OutputOf({"/bin/sh", "-c",
                  "cd " + folder + " && git -c user.name=A -c user.email=a@example.org -c init.defaultBranch=main " +
                      command});
    }

    void MakeCheckout() const
    {
        Git(m_folder.Path(), "init -q");
        Git(m_folder.Path(), "add .");
        Git(m_folder.Path(), "commit -q -m first");
    }

    static std::string Commit(const std::string& folder)
    {
        std::string text = OutputOf({"/usr/bin/git", "-C", folder, "rev-parse", "--short", "HEAD"});
        text.pop_back();
        return text;
    }

    std::string Header(const std::string& source) const
    {
        OutputOf({"/usr/bin/cmake", "-Dsource=" + source, "-Dversion=7.8.9", "-Doutput=" + (m_made / "version.h"), "-P",
                  NQ_SOURCE_DIR "/cmake/version.cmake"});
        return BytesOf(m_made / "version.h");
    }

    TemporaryFolder m_folder;
    TemporaryFolder m_made;
};

TEST_F(SourceTree, WithoutGitTheCommitIsUnknown)
{
    const std::string header = Header(m_folder.Path());
    EXPECT_THAT(header, HasSubstr("#define NQ_VERSION \"7.8.9\"\n"));
    EXPECT_THAT(header, HasSubstr("#define NQ_COMMIT \"unknown\"\n"));
}

TEST_F(SourceTree, OfACheckoutTellsItsCommitAndThatItWasChanged)
{
    MakeCheckout();
    const std::string commit = Commit(m_folder.Path());
    EXPECT_THAT(Header(m_folder.Path()), HasSubstr("#define NQ_COMMIT \"" + commit + "\"\n"));
    std::ofstream(m_folder / "cmake/nq_version.h.in", std::ios::app) << "\n";
    EXPECT_THAT(Header(m_folder.Path()), HasSubstr("#define NQ_COMMIT \"" + commit + "-dirty\"\n"));
}

TEST_F(SourceTree, OfSomebodyElseTellsItsCommitToRoot)
{
    MakeCheckout();
    const std::string commit = Commit(m_folder.Path());
    OutputOf({"/bin/chown", "-R", "54321:54321", m_folder.Path()});
    EXPECT_THAT(Header(m_folder.Path()), HasSubstr("#define NQ_COMMIT \"" + commit + "\"\n"));
}

TEST_F(SourceTree, OfAnArchiveTellsTheCommitItWasMadeOf)
{
    MakeCheckout();
    const TemporaryFolder unpacked;
    Git(m_folder.Path(), "archive HEAD | tar -x -C " + unpacked.Path());
    EXPECT_THAT(Header(unpacked.Path()), HasSubstr("#define NQ_COMMIT \"" + Commit(m_folder.Path()) + "\"\n"));
}

TEST_F(SourceTree, InsideAnotherRepositoryDoesNotTellTheCommitOfThat)
{
    MakeCheckout();
    MakeTree(m_folder / "unpacked");
    EXPECT_THAT(Header(m_folder / "unpacked"), HasSubstr("#define NQ_COMMIT \"unknown\"\n"));
}

TEST_F(SourceTree, WhoseCommitIsTheSameLeavesTheHeaderAlone)
{
    Header(m_folder.Path());
    const auto before = fs::last_write_time(m_made / "version.h");
    Header(m_folder.Path());
    EXPECT_EQ(fs::last_write_time(m_made / "version.h"), before);
}

} // namespace
