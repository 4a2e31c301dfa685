// SPDX-License-Identifier: Apache-2.0
// The environment in which the library gives the standard's answers.
#pragma once

#include <cstdlib>

namespace nq::test
{

/// Asks for the standard's answers of every GCInitLib during its life. In a fixture it stands before what initialises
/// the library.
class StandardAnswers
{
  public:
    StandardAnswers() { setenv("NQ_GEV_TL_STANDARD", "1", 1); }
    ~StandardAnswers() { unsetenv("NQ_GEV_TL_STANDARD"); }
    StandardAnswers(const StandardAnswers&) = delete;
    StandardAnswers& operator=(const StandardAnswers&) = delete;
};

} // namespace nq::test
