// SPDX-License-Identifier: Apache-2.0
// How findings and their table are printed.
#include "doctor/doctor.h"

#include "printable.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace nq::tool::doctor
{

std::string FindingsText(const std::vector<Finding>& findings)
{
    std::string text;
    for (const Finding& one : findings)
    {
        text += fmt::format("{:<9}  {:<18}  {}{}{}\n", VerdictText(one.verdict), one.kind->id, Printable(one.subject),
                            one.subject.empty() ? "" : ": ", Printable(one.text));
        if (one.verdict == Verdict::Wrong)
        {
            text += fmt::format("           {}\n", Printable(one.mend));
        }
    }
    return text + fmt::format("{} right, {} wrong, {} not known\n", CountOf(findings, Verdict::Right),
                              CountOf(findings, Verdict::Wrong), CountOf(findings, Verdict::NotKnown));
}

std::string FindingsJson(const std::vector<Finding>& findings)
{
    using Json = nlohmann::ordered_json;
    Json all = Json::array();
    for (const Finding& one : findings)
    {
        all.push_back({{"id", one.kind->id},
                       {"question", one.kind->question},
                       {"subject", one.subject},
                       {"verdict", VerdictText(one.verdict)},
                       {"text", one.text},
                       {"mend", one.verdict == Verdict::Wrong ? Json(one.mend) : Json(nullptr)}});
    }
    const Json whole = {{"right", CountOf(findings, Verdict::Right)},
                        {"wrong", CountOf(findings, Verdict::Wrong)},
                        {"not_known", CountOf(findings, Verdict::NotKnown)},
                        {"findings", all}};
    // ASCII alone, so that no terminal obeys a name; what is no UTF-8 becomes U+FFFD.
    return whole.dump(2, ' ', true, Json::error_handler_t::replace) + "\n";
}

std::string TableText()
{
    std::string text = "| Finding | Question | How it is seen | What mends it |\n|---|---|---|---|\n";
    for (const FindingKind& kind : FindingKinds())
    {
        text += fmt::format("| `{}` | {} | {} | `{}` |\n", kind.id, kind.question, kind.seen, kind.mend);
    }
    return text;
}

} // namespace nq::tool::doctor
