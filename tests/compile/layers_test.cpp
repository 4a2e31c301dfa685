// SPDX-License-Identifier: Apache-2.0
// Who may include whom: a layer of src/ sees only the layers below it, and the programs around it see less.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace
{

struct Include
{
    std::string from; ///< relative to the tree's root
    std::string what;
    bool quoted = false;
};

std::vector<Include> IncludesOf(const std::string& folder)
{
    const fs::path root = NQ_SOURCE_DIR;
    const std::regex directive(R"(^\s*#\s*include\s*(["<])([^">]+)[">])");
    std::vector<Include> includes;
    for (const auto& entry : fs::recursive_directory_iterator(root / folder))
    {
        const std::string extension = entry.path().extension().string();
        if (extension != ".h" && extension != ".cpp" && extension != ".c")
        {
            continue;
        }
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);)
        {
            std::smatch match;
            if (std::regex_search(line, match, directive))
            {
                includes.push_back({fs::relative(entry.path(), root).string(), match[2], match[1] == "\""});
            }
        }
    }
    return includes;
}

std::string FirstFolder(const std::string& path)
{
    const std::size_t slash = path.find('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

/// A folder and the folders whose headers its files may include.
using Floors = std::map<std::string, std::set<std::string>>;

void ExpectNoIncludeUpward(const std::string& tree, const Floors& seen, std::size_t fewest)
{
    const std::vector<Include> includes = IncludesOf(tree);
    ASSERT_GT(includes.size(), fewest);
    for (const Include& one : includes)
    {
        const std::string layer = FirstFolder(one.from.substr(tree.size() + 1));
        ASSERT_TRUE(seen.contains(layer)) << one.from;
        const std::string target = FirstFolder(one.what);
        EXPECT_TRUE(!seen.contains(target) || seen.at(layer).contains(target)) << one.from << " includes " << one.what;
    }
}

// Four floors: the ground, three neighbours on it that do not know each other, the modules above them, the roof.
TEST(Layers, AFolderOfTheLibraryIncludesOnlyItselfAndFoldersBelowIt)
{
    ExpectNoIncludeUpward("src",
                          {
                              {"base", {"base"}},
                              {"gige", {"gige", "base"}},
                              {"rdma", {"rdma", "base"}},
                              {"gentl", {"gentl", "base"}},
                              {"gev", {"gev", "gentl", "rdma", "gige", "base"}},
                              {"entry", {"entry", "gev", "gentl", "rdma", "gige", "base"}},
                          },
                          100U);
}

TEST(Layers, AFolderOfTheSoftwareRdmaIncludesOnlyItselfAndFoldersBelowIt)
{
    ExpectNoIncludeUpward("loopback",
                          {
                              {"base", {"base"}},
                              {"verbs", {"verbs", "base"}},
                              {"cm", {"cm", "verbs", "base"}},
                              {"api", {"api", "cm", "verbs", "base"}},
                          },
                          100U);
}

// Every name by which a file of src/ can be included.
std::set<std::string> LibraryHeaders()
{
    std::set<std::string> headers;
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(NQ_SOURCE_DIR) / "src"))
    {
        if (entry.path().extension() == ".h")
        {
            headers.insert(fs::relative(entry.path(), fs::path(NQ_SOURCE_DIR) / "src").string());
        }
    }
    return headers;
}

// Any other lock may be held for ever in a forked child.
TEST(Layers, TheLibraryLocksWithNothingButWhatAForkKnows)
{
    const std::set<std::string> wrappers = {"base/nq_fork.h",         "base/nq_fork.cpp",  "base/nq_mutex.h",
                                            "gentl/nq_gentl_mutex.h", "gige/gige_mutex.h", "gige/gige_mutex.cpp"};
    const std::regex lock(
        R"(std::\w*mutex|std::condition_variable|std::once_flag|pthread_(mutex|cond|rwlock|spin)|sem_t)");
    const fs::path source = fs::path(NQ_SOURCE_DIR) / "src";
    int files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(source))
    {
        const std::string name = fs::relative(entry.path(), source).string();
        if (!entry.is_regular_file() || wrappers.contains(name))
        {
            continue;
        }
        ++files;
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);)
        {
            EXPECT_FALSE(std::regex_search(line, lock)) << name << ": " << line;
        }
    }
    EXPECT_GT(files, 100);
}

TEST(Layers, CameraSoftwareRdmaAndToolsUseNothingOfTheLibrarysSources)
{
    const std::set<std::string> headers = LibraryHeaders();
    for (const char* const folder : {"camera", "loopback", "tools"})
    {
        for (const Include& one : IncludesOf(folder))
        {
            EXPECT_FALSE(headers.contains(one.what)) << one.from << " includes " << one.what;
            EXPECT_EQ(one.what.find("src/"), std::string::npos) << one.from << " includes " << one.what;
        }
    }
}

TEST(Layers, CameraAndSoftwareRdmaDoNotKnowTheProducersInterface)
{
    for (const char* const folder : {"camera", "loopback"})
    {
        for (const Include& one : IncludesOf(folder))
        {
            EXPECT_NE(one.what, "nq_gev_gentl.h") << one.from;
            EXPECT_NE(FirstFolder(one.what), "GenTL") << one.from;
        }
    }
}

TEST(Layers, ModuleAndEndToEndTestsSeeOnlyThePublicHeaders)
{
    const std::set<std::string> headers = LibraryHeaders();
    for (const char* const folder : {"tests/module", "tests/e2e", "tests/tools"})
    {
        for (const Include& one : IncludesOf(folder))
        {
            EXPECT_FALSE(headers.contains(one.what)) << one.from << " includes " << one.what;
        }
    }
}

TEST(Layers, HeadersOfTheProjectAreIncludedInQuotesFromTheRootOfTheirLayers)
{
    for (const char* const folder : {"src", "camera", "loopback", "tools", "tests"})
    {
        const std::vector<Include> includes = IncludesOf(folder);
        EXPECT_GT(includes.size(), 50U) << folder;
        for (const Include& one : includes)
        {
            const fs::path header = fs::path(NQ_SOURCE_DIR) / "include" / one.what;
            EXPECT_TRUE(one.quoted || !fs::exists(header)) << one.from << " includes <" << one.what << ">";
            EXPECT_FALSE(one.what.starts_with("./")) << one.from << " includes " << one.what;
        }
    }
}

} // namespace
