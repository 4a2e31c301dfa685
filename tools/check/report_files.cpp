// SPDX-License-Identifier: Apache-2.0
// What was found, as JUnit's XML and as a program in C.
#include "report.h"

#include "baseline.h"

#include <fmt/format.h>

namespace nq::check
{

namespace
{

/// The text for XML; what XML cannot hold becomes '?'.
std::string Escaped(std::string_view text)
{
    std::string escaped;
    for (const char c : text)
    {
        const bool control = static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t';
        const bool foreign = static_cast<unsigned char>(c) >= 0x7F; // may be no UTF-8
        escaped += c == '<'   ? "&lt;"
                   : c == '&' ? "&amp;"
                   : c == '"' ? "&quot;"
                              : std::string(1, control || foreign ? '?' : c);
    }
    return escaped;
}

constexpr std::string_view kProgramHead = R"(#include "GenTL/GenTL.h"
#include "GenTL/GenTLFunctions.h"
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define POINTER(Name) P##Name Name;
static struct { GENTL_FUNCTIONS(POINTER) } g;
static void* h[4096]; /* handles in the order in which they came */
static int32_t number;
static uint32_t count;
static bool8_t flag;

/* Memory k. */
static void* M(int k)
{
    static void* all[4096];
    return all[k] ? all[k] : (all[k] = calloc(1, 1 << 26));
}

/* A size that holds n. */
static size_t* S(size_t n)
{
    static size_t sizes[64];
    static int next;
    size_t* size = &sizes[next++ % 64];
    *size = n;
    return size;
}

static void say(const char* name, GC_ERROR code)
{
    printf("%s -> %d\n", name, (int)code);
    fflush(stdout);
}

int main(int argc, char** argv)
{
    void* library = argc == 2 ? dlopen(argv[1], RTLD_NOW) : NULL;
    if (!library)
    {
        fprintf(stderr, "usage: again PRODUCER.cti\n");
        return 2;
    }
#define FIND(Name) *(void**)&g.Name = dlsym(library, #Name);
    GENTL_FUNCTIONS(FIND)
    (void)M, (void)S, (void)number, (void)count, (void)flag, (void)h;
)";

} // namespace

std::string AsJUnit(const Report& report)
{
    const size_t errors = report.problem.empty() ? 0 : 1;
    std::string xml = fmt::format("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<testsuites>\n<testsuite "
                                  "name=\"gentl-check\" tests=\"{}\" failures=\"{}\" errors=\"{}\" skipped=\"{}\">\n",
                                  report.findings.size() + errors, report.Count(Outcome::Failed), errors,
                                  report.Count(Outcome::NotTried));
    if (errors > 0)
    {
        xml += fmt::format("<testcase classname=\"loading\" name=\"{0}\"><error message=\"{1}\"/></testcase>\n",
                           Escaped(report.target.path), Escaped(report.problem));
    }
    for (const Finding& finding : report.findings)
    {
        xml += fmt::format("<testcase classname=\"{}\" name=\"{} {}\" time=\"{:.3f}\">", Escaped(finding.family),
                           finding.rule->id, Escaped(finding.rule->words), finding.seconds);
        if (finding.Broken())
        {
            xml += fmt::format(
                "<failure message=\"{}\">{}</failure>", ToText(finding.rule->severity),
                Escaped(fmt::format("{}\n{}\n{}", finding.text, ConsequenceOf(*finding.rule), finding.backtrace)));
        }
        else if (finding.outcome == Outcome::NotTried)
        {
            xml += fmt::format("<skipped message=\"{}\"/>", Escaped(finding.text));
        }
        xml += "</testcase>\n";
    }
    return xml + "</testsuite>\n</testsuites>\n";
}

std::string AsProgram(const Finding& finding)
{
    std::string program = fmt::format("/* {}: {}\n   cc -I include -o again again.c && ./again PRODUCER.cti */\n",
                                      finding.rule->id, finding.rule->words);
    program += kProgramHead;
    for (size_t begin = 0; begin < finding.lines.size();)
    {
        const size_t end = std::min(finding.lines.find('\n', begin), finding.lines.size());
        program += "    " + finding.lines.substr(begin, end - begin) + "\n";
        begin = end + 1;
    }
    return program + "    return 0;\n}\n";
}

} // namespace nq::check
