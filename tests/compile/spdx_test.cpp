// SPDX-License-Identifier: Apache-2.0
// The list of what the built files are made of, as scripts/spdx.py makes it.
#include "support/command_output.h"
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::HasSubstr;
using testing::Not;

/// What every such document has to have, and ids that lead somewhere.
constexpr const char* kCheckDocument = R"(
import hashlib, json, re, sys
document = json.load(open(sys.argv[1]))
assert document["spdxVersion"] == "SPDX-2.3" and document["dataLicense"] == "CC0-1.0"
assert document["SPDXID"] == "SPDXRef-DOCUMENT" and document["name"].startswith("nq_gev_rdma_tl-")
assert document["documentNamespace"].startswith("https://spdx.org/spdxdocs/nq_gev_rdma_tl-")
assert document["creationInfo"] == {"created": "1970-01-01T00:00:00Z", "creators": ["Tool: scripts/spdx.py"]}
entries = document["packages"] + document["files"]
ids = [entry["SPDXID"] for entry in entries] + ["SPDXRef-DOCUMENT"]
assert len(set(ids)) == len(ids) and all(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", one) for one in ids)
for package in document["packages"]:
    assert package["name"] and package["versionInfo"] and package["downloadLocation"] and package["licenseDeclared"]
# A package that contains files has to have analysed them, and tell of all of them by one sum.
containing = {one["spdxElementId"] for one in document["relationships"] if one["relationshipType"] == "CONTAINS"}
sums = sorted(file["checksums"][0]["checksumValue"] for file in document["files"])
for package in document["packages"]:
    assert package["filesAnalyzed"] == (package["SPDXID"] in containing), package["SPDXID"]
    if package["filesAnalyzed"]:
        value = hashlib.sha1("".join(sums).encode()).hexdigest()
        assert package["packageVerificationCode"] == {"packageVerificationCodeValue": value}
assert len(containing) == 1
for file in document["files"]:
    assert file["fileName"].startswith("./") and len(file["checksums"][0]["checksumValue"]) == 40
for relation in document["relationships"]:
    assert relation["spdxElementId"] in ids and relation["relatedSpdxElement"] in ids
)";

/// Packages whose headers went into a program and leave code there that docs/third-party.txt does not tell of. Headers
/// for C, those of the kernel and of the C library leave declarations, and those of g++ what their licence lets
/// everybody pass on. A build by clang++ names more that leave nothing: its own headers of types and instructions, the
/// sanitizers' list of exceptions, and tbb.h, of which libstdc++ asks only whether it is there.
constexpr const char* kCheckNotices = R"(
import json, re, sys
document, notices = json.load(open(sys.argv[1])), open(sys.argv[2]).read()
told = {"libcli11-dev": "\nCLI11, BSD-3-Clause\n", "nlohmann-json3-dev": "(nlohmann/json), MIT\n", "libfmt-dev": "\n{fmt}, MIT\n",
        "libcpp-httplib-dev": "\ncpp-httplib, MIT "}
plain = re.compile(r"(libc6|linux-libc|libcrypt|libstdc\+\+-\d+|libgcc-\d+|libibverbs|librdmacm|libpng|libtiff|libjpeg62-turbo|libzip"
                   r"|zlib1g|libssl|lib(glib|gio-)2\.0|libaravis|libbrotli|libclang-common-\d+|libclang-rt-\d+|libtbb)-dev")
names = {package["SPDXID"]: package["name"] for package in document["packages"]}
used = {names[one["spdxElementId"]] for one in document["relationships"] if one["relationshipType"] == "BUILD_DEPENDENCY_OF"}
print("not told:", *sorted(name for name in used if not plain.fullmatch(name) and told.get(name, "?") not in notices))
print("told:", *sorted(used & set(told)))
)";

std::string RelationText(const std::string& first, const std::string& kind, const std::string& second)
{
    return "\"spdxElementId\": \"SPDXRef-" + first + "\",\n      \"relationshipType\": \"" + kind +
           "\",\n      \"relatedSpdxElement\": \"SPDXRef-" + second;
}

TEST(Spdx, NamesWhatEachFileIsLinkedWithAndWhatWasCompiledIntoIt)
{
    const TemporaryFolder folder;
    const std::string path = folder / "list.spdx.json";
    // It reads what each of the build's files was made of: seconds, and a minute where both cores have other work.
    ChildProcess making(
        {"/bin/sh", "-c", "exec /usr/bin/python3 '" NQ_SOURCE_DIR "/scripts/spdx.py' '" NQ_BINARY_DIR "' >" + path},
        {"SOURCE_DATE_EPOCH=0"});
    ASSERT_EQ(making.WaitForExit(std::chrono::seconds(110)), 0) << making.Output();
    const Outcome checked = RunProgram({"/usr/bin/python3", "-c", kCheckDocument, path});
    EXPECT_EQ(checked.exitCode, 0) << checked.output;

    const std::string text = BytesOf(path);
    const std::string library = "File-libnq-gev-rdma-tl.cti";
    EXPECT_THAT(text, HasSubstr(RelationText("DOCUMENT", "DESCRIBES", "Package-nq-gev-rdma-tl\"")));
    EXPECT_THAT(text, HasSubstr(RelationText("Package-nq-gev-rdma-tl", "CONTAINS", library + "\"")));
    for (const char* package : {"libibverbs1", "librdmacm1", "libstdc-plus-plus6", "libc6"})
    {
        EXPECT_THAT(text, HasSubstr(RelationText(library, "DYNAMIC_LINK", std::string("Package-") + package)));
    }
    EXPECT_THAT(text, Not(HasSubstr(RelationText(library, "DYNAMIC_LINK", "Package-libpng"))));
    EXPECT_THAT(text, HasSubstr(RelationText("Package-libibverbs-dev", "BUILD_DEPENDENCY_OF", library)));
    for (const char* package : {"libcli11-dev", "nlohmann-json3-dev"})
    {
        const std::string name = std::string("Package-") + package;
        EXPECT_THAT(text, HasSubstr(RelationText(name, "BUILD_DEPENDENCY_OF", "File-nq-gev-camera\"")));
        EXPECT_THAT(text, Not(HasSubstr(RelationText(name, "BUILD_DEPENDENCY_OF", library))));
    }
    EXPECT_THAT(text, HasSubstr(RelationText("File-nq-gev-camera", "DYNAMIC_LINK", "Package-libpng16")));
    EXPECT_THAT(
        OutputOf({"/usr/bin/python3", "-c", kCheckNotices, path, NQ_SOURCE_DIR "/docs/third-party.txt"}),
        testing::MatchesRegex("not told:\ntold: libcli11-dev (libcpp-httplib-dev )?libfmt-dev nlohmann-json3-dev\n"));
}

} // namespace
