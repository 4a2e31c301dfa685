// SPDX-License-Identifier: Apache-2.0
// What the doctor can find out, as a table, and what it has found.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace nq::tool::doctor
{

/// One row of the table: something that has to be right before pictures come.
struct FindingKind
{
    const char* id;
    const char* question;
    const char* seen; ///< how it is found out, and when it is wrong
    const char* mend; ///< a line to type, or what to do; words in capitals stand for what was found
};

/// The table, in the order of the chain from the library to the memory for frames.
const std::vector<FindingKind>& FindingKinds();

enum class Verdict
{
    Right,
    Wrong,
    NotKnown,
};

/// "right", "wrong" or "not known".
const char* VerdictText(Verdict verdict);

struct Finding
{
    const FindingKind* kind = nullptr;
    std::string subject; ///< the adapter, camera or file that it is about; empty for the machine
    Verdict verdict = Verdict::NotKnown;
    std::string text; ///< what was seen, or why it is not known
    std::string mend; ///< of a wrong one: the line that mends it
};

/// What was found so far. Every id has to be one of the table; another one is a std::logic_error.
class Findings
{
  public:
    /// What a word in capitals stands for in the line that mends.
    using Words = std::vector<std::pair<std::string, std::string>>;

    void Right(const char* id, const std::string& subject, const std::string& text);
    void Wrong(const char* id, const std::string& subject, const std::string& text, const Words& words = {});
    void NotKnown(const char* id, const std::string& subject, const std::string& reason);

    /// Of those ids that nothing was found about, `reason` is the reason.
    void NotKnownElse(const std::vector<const char*>& ids, const std::string& reason);

    /// All of them in the order of the table.
    std::vector<Finding> Sorted() const;

  private:
    std::vector<Finding> m_all;
};

size_t CountOf(const std::vector<Finding>& findings, Verdict verdict);

} // namespace nq::tool::doctor
