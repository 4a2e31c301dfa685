// SPDX-License-Identifier: Apache-2.0
// What is written beside the code: links that lead somewhere, a site that loads nothing, symptoms in the programs'
// words, commands that tests run, a list of changes of this version, and what who reports a defect is asked for.
#include "support/command_output.h"
#include "support/source_text.h"
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gmock/gmock.h>
#include <sstream>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::HasSubstr;

Outcome CheckLinks(const std::string& folder)
{
    return RunProgram({"/usr/bin/python3", NQ_SOURCE_DIR "/scripts/check_links.py", folder});
}

TEST(Papers, HaveNoLinkThatLeadsNowhere)
{
    const Outcome links = CheckLinks(NQ_SOURCE_DIR);
    EXPECT_EQ(links.exitCode, 0) << links.output;
}

TEST(Papers, WithALinkThatLeadsNowhereAreFound)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "other.md") << "# A heading, two\n\n# A heading, two\n";
    std::ofstream(folder / "page.md")
        << "[good](other.md#a-heading-two-1) [absent](absent.md) [far](https://example.org)\n"
           "[heading](other.md#a-heading-two-2) `[code](code.md)`\n"
           "[title](other.md \"Other\") [titled](titled.md 'Titled') [named][1]\n\n[1]: named.md\n"
           "```\n[fenced](fenced.md)\n```\n";
    const Outcome links = CheckLinks(folder.Path());
    EXPECT_EQ(links.exitCode, 1);
    EXPECT_EQ(links.output, "page.md: absent.md: no such file\n"
                            "page.md: other.md#a-heading-two-2: no such heading\n"
                            "page.md: titled.md: no such file\n"
                            "page.md: named.md: no such file\n"
                            "7 links, 4 of them lead nowhere\n");
}

/// Pages as a site has them, a page `name` among them. The search knows index.html alone.
Outcome CheckSite(const std::string& page, const std::string& name = "index.html")
{
    const TemporaryFolder site;
    fs::create_directories(site / "search");
    fs::create_directories(site / "api");
    std::ofstream(site / "search/search_index.json") << R"({"docs": [{"location": "index.html"}]})";
    std::ofstream(site / "index.html") << page;
    std::ofstream(site / name) << page;
    return RunProgram({"/usr/bin/python3", NQ_SOURCE_DIR "/scripts/check_site.py", site.Path()});
}

constexpr const char* kLoadingParts[] = {
    R"(<script src="https://example.org/a.js">)",
    R"(<img src="//example.org/a.png">)",
    R"(<link rel="stylesheet" href="http://example.org/a.css">)",
    R"(<img src="a.png" srcset="a.png 1x, https://example.org/b.png 2x">)",
    R"(<video poster="//example.org/a.png">)",
    R"(<base href="https://example.org/">)",
    R"(<svg><use href="https://example.org/a.svg#a"/></svg>)",
    R"(<style>URL( "https://example.org/a.png")</style>)",
    R"(<style>@import "https://example.org/a.css";</style>)",
    R"-(<p style="background: url(&quot;//example.org/a.png&quot;)">)-",
};

TEST(Site, MayLeadElsewhereButLoadsNothingFromThere)
{
    const Outcome leads = CheckSite(R"(<a href="https://example.org">a</a><script src="own.js"></script>)"
                                    R"(<img src="data:image/png;base64,//8A" srcset="a.png 1x, b//c.png 2x">)"
                                    R"(<p style="color: red">url(https://example.org/a.png)</p>)");
    EXPECT_EQ(leads.exitCode, 0) << leads.output;
    for (const char* part : kLoadingParts)
    {
        const Outcome loads = CheckSite(part);
        EXPECT_EQ(loads.exitCode, 1) << part;
        EXPECT_THAT(loads.output, HasSubstr("index.html loads "));
    }
}

TEST(Site, HasNoPageThatTheSearchDoesNotKnowButThoseOfTheHeaders)
{
    const Outcome headers = CheckSite("<p>text</p>", "api/GenTL_8h.html");
    EXPECT_EQ(headers.exitCode, 0) << headers.output;
    const Outcome lost = CheckSite("<p>text</p>", "lost.html");
    EXPECT_EQ(lost.exitCode, 1);
    EXPECT_THAT(lost.output, HasSubstr("lost.html is not in the index of the search\n"));
    const Outcome loads = CheckSite(R"(<img src="//example.org/a.png">)", "api/GenTL_8h.html");
    EXPECT_EQ(loads.exitCode, 1);
    EXPECT_THAT(loads.output, HasSubstr("api/GenTL_8h.html loads //example.org/a.png\n"));
}

TEST(Site, HasEveryPageInItsNavigation)
{
    const Outcome missing = RunProgram({"/usr/bin/python3", "-B", "-c",
                                        "import os, re, sys\n"
                                        "root = sys.argv[1]\n"
                                        "sys.path.insert(0, os.path.join(root, 'scripts'))\n"
                                        "from check_links import pages\n"
                                        "with open(os.path.join(root, 'mkdocs.yml')) as file:\n"
                                        "    shown = set(re.findall(r': (\\S+\\.md)\\n', file.read()))\n"
                                        "names = {os.path.relpath(page, root) for page in pages(root)}\n"
                                        "names = {name for name in names if not name.startswith('.')}\n"
                                        "print(len(names) > 20, *sorted(names - shown))\n",
                                        NQ_SOURCE_DIR});
    EXPECT_EQ(missing.output, "True\n");
}

/// The text of all literals of the tools, those that stand behind each other as one.
std::string TextsOfTools()
{
    std::string all;
    for (const fs::path& file : Sources("tools"))
    {
        bool joined = false;
        std::istringstream lines(TextOf(file));
        for (std::string line; std::getline(lines, line);)
        {
            line.erase(0, line.find_first_not_of(' '));
            const bool continues = joined && line.starts_with('"');
            all += continues ? line.substr(1) : line + "\n";
            joined = line.size() > 1 && line.ends_with('"');
            if (joined)
            {
                all.resize(all.size() - (continues ? 1 : 2));
            }
        }
    }
    return all;
}

TEST(Troubleshooting, IsByWhatTheProgramsPrint)
{
    const std::string texts = TextsOfTools();
    const Names symptoms = All(TextOfFile("docs/troubleshooting.md"), R"(\n\| ``?(.*?)``? \| [0-9] \|)");
    EXPECT_GE(symptoms.size(), 10U);
    for (const std::string& symptom : symptoms)
    {
        std::size_t from = 0;
        for (std::size_t to = 0; to != std::string::npos; from = to + std::string("…").size())
        {
            to = symptom.find("…", from);
            const std::string piece = symptom.substr(from, to == std::string::npos ? to : to - from);
            EXPECT_NE(texts.find(piece), std::string::npos) << symptom << "\nhas: " << piece;
        }
    }
}

Outcome CheckCommands(const std::string& folder)
{
    return RunProgram({"/usr/bin/python3", NQ_SOURCE_DIR "/scripts/check_commands.py", folder});
}

TEST(Commands, OfThePagesAreRunByTestsOrSaidNotToBe)
{
    const Outcome commands = CheckCommands(NQ_SOURCE_DIR);
    EXPECT_EQ(commands.exitCode, 0) << commands.output;
}

TEST(Commands, ThatNobodyRunsAreFound)
{
    const TemporaryFolder folder;
    fs::create_directories(folder / "docs");
    fs::create_directories(folder / "tests/e2e");
    fs::create_directories(folder / ".ci");
    std::ofstream(folder / ".ci/run") << "step ./run demo\n";
    std::ofstream(folder / "tests/e2e/list_test.cpp") << "TEST(List, IsThere)\n{\n";
    std::ofstream(folder / "page.md")
        << "```\n./run demo   # quick\n./run soak\nbuild/nq-gev list\nbuild/nq-gev grab\n"
           "build/nq-gev new\n. /etc/profile.d/nq.sh\n./with_camera.sh ./my_test\n"
           "apt-get install -y nq\nscripts/page.py out\nninja -C build x\n```\n`build/nq-gev outside`\n";
    std::ofstream(folder / "docs/commands.txt") << "./run demo -> .ci/run\n./run soak -> .ci/run\n"
                                                   "build/nq-gev list -> List.IsThere\n"
                                                   "build/nq-gev grab -> List.IsNotThere\n"
                                                   "build/nq-gev old -> hardware\n";
    const Outcome commands = CheckCommands(folder.Path());
    EXPECT_EQ(commands.exitCode, 1);
    EXPECT_EQ(commands.output, "page.md: nobody says what runs: build/nq-gev new\n"
                               "page.md: nobody says what runs: . /etc/profile.d/nq.sh\n"
                               "page.md: nobody says what runs: ./with_camera.sh ./my_test\n"
                               "page.md: nobody says what runs: apt-get install -y nq\n"
                               "page.md: nobody says what runs: scripts/page.py out\n"
                               "page.md: nobody says what runs: ninja -C build x\n"
                               "docs/commands.txt: no page has: build/nq-gev old\n"
                               "docs/commands.txt: .ci/run does not run: ./run soak\n"
                               "docs/commands.txt: List.IsNotThere does not run: build/nq-gev grab\n"
                               "4 commands run by tests, 1 need hardware, 0 are run by hand, 9 wrong\n");
}

Outcome CheckPictures(const std::string& folder)
{
    return RunProgram({"/usr/bin/python3", NQ_SOURCE_DIR "/scripts/pictures.py", folder});
}

TEST(Pictures, OfThePagesAreMadeByTests)
{
    const Outcome pictures = CheckPictures(NQ_SOURCE_DIR);
    EXPECT_EQ(pictures.exitCode, 0) << pictures.output;
}

TEST(Pictures, ThatNobodyMakesAreFoundAndTheOthersAreTakenFromWhereTheyAreMade)
{
    const TemporaryFolder folder;
    for (const char* name : {"docs", "tests/unit", "out/view"})
    {
        fs::create_directories(folder / name);
    }
    std::ofstream(folder / "tests/unit/a_test.cpp") << "TEST(A, Picture)\n{\n";
    std::ofstream(folder / "docs/page.md")
        << "![One](one.png) ![Two](two.png)\n![Three](../three.png) ![Four](four.png)\n";
    std::ofstream(folder / "docs/pictures.txt")
        << "# Pictures\ndocs/one.png <- A.Picture\ndocs/two.png <- out/view/second.png\n"
           "three.png <- B.Picture\nfive.png <- A.Picture\n";
    std::ofstream(folder / "out/view/second.png") << "second";
    const Outcome pictures = CheckPictures(folder.Path());
    EXPECT_EQ(pictures.exitCode, 1);
    EXPECT_EQ(pictures.output, "docs/page.md: nobody says what makes docs/four.png\n"
                               "docs/pictures.txt: no page shows five.png\n"
                               "docs/pictures.txt: nothing makes three.png: B.Picture\n"
                               "4 pictures, 3 wrong\n");
    const Outcome taken =
        RunProgram({"/usr/bin/python3", NQ_SOURCE_DIR "/scripts/pictures.py", "--take", folder.Path()});
    EXPECT_EQ(taken.output, "docs/two.png: out/view/second.png\n");
    EXPECT_EQ(BytesOf(folder / "docs/two.png"), "second");
}

TEST(InstallPage, NamesThePackagesThatTheScriptsInstallForABuild)
{
    const std::string page = TextOfFile("docs/install.md");
    for (const std::string& name :
         All(OutputOf({"/bin/bash", "-c", ". '" NQ_SOURCE_DIR "/scripts/common.sh'; printf '%s\n' $build_packages"}),
             "(.+)\n"))
    {
        EXPECT_THAT(page, HasSubstr(name));
    }
}

TEST(Readme, SaysWhatTheDemoDoesWhatABuildNeedsAndHowLongItTakes)
{
    // A sentence may stand on two lines.
    const std::string page = std::regex_replace(TextOfFile("README.md"), std::regex("\\s+"), " ");
    for (const char* words :
         {"checks 300 frames of a virtual camera byte by byte, then writes 10 pictures of a scene under `out/demo/`",
          "![Machined parts on a conveyor belt](docs/pictures/scene.png)",
          "g++ 12, cmake 3.25, pkg-config, make or ninja, `libibverbs-dev` and `librdmacm-dev`",
          "In a container without `CAP_SYS_ADMIN` the demo uses an address of the machine instead"})
    {
        EXPECT_THAT(page, HasSubstr(words));
    }
    EXPECT_THAT(page, testing::ContainsRegex("the first demo takes about [a-z]+ minutes"));
    EXPECT_THAT(page, testing::ContainsRegex("the tests take [a-z]+"));
}

TEST(SecurityPage, NamesAllThatTheLibraryReadsOfEnvironmentAndFiles)
{
    Names variables;
    Names files;
    for (const fs::path& file : Sources())
    {
        const std::string text = TextOf(file);
        const auto has = [&](const char* call) { return text.find(call) != std::string::npos; };
        for (const char* other : {"fstream", "openat(", "creat(", "::open("})
        {
            EXPECT_FALSE(has(other)) << file << " has " << other;
        }
        if (has("getenv(") || has("fopen("))
        {
            variables.merge(All(text, R"rx(getenv\("([^"]+)"\))rx"));
            files.merge(All(text, R"rx(fopen\("([^"]+)",)rx"));
        }
    }
    ASSERT_EQ(variables.size(), 1U);
    ASSERT_EQ(files.size(), 1U);
    const std::string page = TextOfFile("docs/security.md");
    EXPECT_THAT(page, HasSubstr("| `" + *variables.begin() + "` alone |"));
    EXPECT_THAT(page, HasSubstr("| `" + *files.begin() + "` alone |"));
}

TEST(SecurityPage, TellsOfTheServiceOfThePackages)
{
    EXPECT_TRUE(fs::exists(NQ_SOURCE_DIR "/debian/nq-gev-camera.nq-gev-camera@.service"));
    EXPECT_THAT(TextOfFile("docs/security.md"), HasSubstr("| the unit `nq-gev-camera@ADAPTER` |"));
}

TEST(Changelog, BeginsWithTheVersionOfTheBuild)
{
    const Names version = All(TextOfFile("CMakeLists.txt"), R"(project\([a-z_]+ VERSION ([0-9.]+))");
    ASSERT_EQ(version.size(), 1U);
    const std::string changes = TextOfFile("CHANGELOG.md");
    const std::size_t first = changes.find("\n## ");
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(changes.substr(first, 4 + version.begin()->size()), "\n## " + *version.begin());
}

TEST(IssueTemplates, EachAsksForTheReportOfTheMachine)
{
    int templates = 0;
    for (const auto& entry : fs::directory_iterator(NQ_SOURCE_DIR "/.github/ISSUE_TEMPLATE"))
    {
        if (entry.path().extension() == ".md")
        {
            ++templates;
            const std::string text = TextOf(entry.path());
            EXPECT_THAT(text, testing::MatchesRegex("---\nname: [^\n]+\nabout: [^\n]+\nlabels: [a-z]+\n---\n(.|\n)*"));
            EXPECT_THAT(text, HasSubstr("\n```\nnq-gev report -o report.txt\n```\n")) << entry.path();
        }
    }
    EXPECT_EQ(templates, 2);
}

TEST(IssueTemplates, CannotBePassedBy)
{
    EXPECT_THAT(TextOfFile(".github/ISSUE_TEMPLATE/config.yml"), HasSubstr("\nblank_issues_enabled: false\n"));
}

} // namespace
