// SPDX-License-Identifier: Apache-2.0
// Failures that are known: a file of lines "ID failed" or "ID not-tried", with comments behind '#'.
#pragma once

#include "runner.h"

#include <map>
#include <string>
#include <vector>

namespace nq::check
{

class Baseline
{
  public:
    /// Throws std::runtime_error for a file that cannot be read, or a line that is wrong.
    explicit Baseline(const std::string& path);

    /// What differs: a finding that the file has otherwise or not at all, and a line whose rule is kept now. Empty when
    /// all is as it says.
    std::vector<std::string> Differences(const std::vector<Finding>& findings) const;

  private:
    std::map<std::string, std::string, std::less<>> m_known; ///< the word by id
};

/// "passed", "failed" or "not-tried".
std::string_view ToText(Outcome outcome);

} // namespace nq::check
