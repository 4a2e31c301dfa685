// SPDX-License-Identifier: Apache-2.0
// How far a grab is, on standard error: in place on a terminal, else a line now and then.
#pragma once

#include "grab_totals.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace nq::tool
{

/// Shows frames, rate and loss of each camera in one line, and what is free on the disk. Any thread may call.
class Progress
{
  public:
    /// `cameras` are their names, which one camera alone needs not; `count` is how many frames of each shall come, 0
    /// for any; `folder` lies on the disk to tell of, and is empty for none.
    Progress(std::vector<std::string> cameras, uint64_t count, std::string folder);

    /// Takes the totals of the camera of that index, and shows all if it is time again: each 200 ms on a terminal, else
    /// each 10 s.
    void Show(size_t camera, const GrabTotals& totals);

    /// A line about the camera of that index.
    void Say(size_t camera, const std::string& text);

  private:
    std::string Line() const;

    const std::vector<std::string> m_cameras;
    const uint64_t m_count;
    const std::string m_folder;
    const bool m_terminal;
    std::mutex m_mutex; ///< guards what follows, and the line
    std::vector<GrabTotals> m_totals;
    GrabTotals::Clock::time_point m_next;
};

} // namespace nq::tool
