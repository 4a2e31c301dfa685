// SPDX-License-Identifier: Apache-2.0
// Cases that run twice: with the library's own answers, and with the standard's.
#pragma once

#include "support/standard_answers.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace nq::test
{

/// The parameter says whose answers the library gives in a case. The environment is set before the members of a fixture
/// that derives from this.
class BothModes : public testing::TestWithParam<const char*>
{
  protected:
    BothModes()
    {
        if (Standard())
        {
            m_asked.emplace();
        }
    }

    static bool Standard() { return std::string(GetParam()) == "standard"; }

    /// The answer of the mode.
    template <typename Value>
    static Value By(Value stated, Value standard)
    {
        return Standard() ? standard : stated;
    }

  private:
    std::optional<StandardAnswers> m_asked;
};

inline std::string ModeName(const testing::TestParamInfo<const char*>& info)
{
    return info.param;
}

} // namespace nq::test

/// At the end of the file of a fixture.
#define NQ_IN_BOTH_MODES(fixture)                                                                                      \
    INSTANTIATE_TEST_SUITE_P(Answers, fixture, testing::Values("stated", "standard"), nq::test::ModeName)
