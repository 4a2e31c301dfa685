// SPDX-License-Identifier: Apache-2.0
// Undoing at the end of a scope what was not completed.
#pragma once

#include <functional>
#include <utility>

/// Runs a function when it goes, unless it was dismissed. As the last member of a class it goes first and finds the
/// other members whole. Reentrant.
class NQRollback
{
  public:
    explicit NQRollback(std::function<void()> undo) : m_undo(std::move(undo)) {}
    ~NQRollback()
    {
        if (m_undo)
        {
            m_undo();
        }
    }
    NQRollback(const NQRollback&) = delete;
    NQRollback& operator=(const NQRollback&) = delete;

    void Dismiss() { m_undo = nullptr; }

  private:
    std::function<void()> m_undo;
};
