// SPDX-License-Identifier: Apache-2.0
// The answers that a camera still owes for the commands it was sent.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace GigETL
{

/// One entry per command sent and not yet answered, by request id. A camera answers every copy of a command, so one
/// that is sent twice is owed twice. Reentrant: it belongs to one Network.
class OwedAnswers
{
  public:
    /// A command with this id and command code was sent.
    void owe(unsigned int id, unsigned int command)
    {
        if (mDebts.size() == kMostDebts)
        {
            mDebts.erase(mDebts.begin());
        }
        mDebts.push_back({id, command + 1});
    }

    /// An answer with this id and acknowledge code has come. One with another code than that of its command pays
    /// nothing.
    void pay(unsigned int id, unsigned int ackCode)
    {
        const auto paid = std::find_if(mDebts.begin(), mDebts.end(), [id, ackCode](const Debt& debt) {
            return debt.id == id && debt.ackCode == ackCode;
        });
        if (paid != mDebts.end())
        {
            mDebts.erase(paid);
        }
    }

    bool owes(unsigned int id) const
    {
        return std::any_of(mDebts.begin(), mDebts.end(), [id](const Debt& debt) { return debt.id == id; });
    }

    bool any() const { return !mDebts.empty(); }
    void forget() { mDebts.clear(); }

  private:
    /// As many as one exchange makes: four attempts of two sendings each.
    static constexpr std::size_t kMostDebts = 8;

    struct Debt
    {
        unsigned int id;
        unsigned int ackCode;
    };
    std::vector<Debt> mDebts; ///< oldest first
};

} // namespace GigETL
