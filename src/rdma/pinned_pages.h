// SPDX-License-Identifier: Apache-2.0
// What a fork does to the pages that an RDMA device writes to.
#pragma once

#include "base/nq_fork.h"

#include <cstddef>

/// Until Linux 5.12 a write to a page that was shared by a fork moves the writer to a copy, pinned or not: the RDMA
/// device goes on to write to the old page, and that part of every later frame stays as it was. Newer systems copy a
/// pinned page for the child, which may then look at its pictures. Of the system of that release, as uname(2) has it.
bool ForkTearsPinnedPages(const char* release);

/// Of this system, which is asked once. Thread-safe.
bool ForkTearsPinnedPages();

/// Keeps memory of the consumer's fit for a device for as long as it lives. Where a fork would tear its pages, a child
/// must not have them, and so nothing else may lie on them: of a piece of memory the pages are its own when it starts
/// at a page, and what is left of its last page belongs to it too. What else lies on a page nobody can know.
///
/// Reentrant.
class PagesKeptFromForks
{
  public:
    /// `length` bytes at `memory`, to which `room` bytes belong in all.
    PagesKeptFromForks(unsigned char* memory, std::size_t length, std::size_t room);

    /// Lets the children of later forks have the pages again.
    ~PagesKeptFromForks();
    PagesKeptFromForks(const PagesKeptFromForks&) = delete;
    PagesKeptFromForks& operator=(const PagesKeptFromForks&) = delete;

    /// Whether a device may write there: false where a fork would take other memory along, or the system refuses.
    bool AreFit() const { return m_fit; }

  private:
    unsigned char* m_kept = nullptr; ///< Null where a fork does no harm.
    std::size_t m_length = 0;
    bool m_fit = true;
    const NQOrigin m_origin;
};
