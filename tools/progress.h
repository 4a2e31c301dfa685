// SPDX-License-Identifier: Apache-2.0
// How far a grab is, on standard error: in place on a terminal, else a line now and then.
#pragma once

#include "grab_totals.h"

#include <cstdint>
#include <string>

namespace nq::tool
{

/// Shows frames, rate, loss and what is free on the disk. Used from one thread.
class Progress
{
  public:
    /// `count` is how many frames shall come, 0 for any; `folder` lies on the disk to tell of, and is empty for none.
    Progress(uint64_t count, std::string folder);

    /// Shows the totals if it is time again: each 200 ms on a terminal, else each 10 s.
    void Show(const GrabTotals& totals);

  private:
    const uint64_t m_count;
    const std::string m_folder;
    const bool m_terminal;
    GrabTotals::Clock::time_point m_next;
};

} // namespace nq::tool
