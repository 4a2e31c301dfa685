// SPDX-License-Identifier: Apache-2.0
// The switch between the library's own answers and the standard's.
#include "base/nq_answers.h"

#include <cstdlib>
#include <cstring>

const NQAnswers& AnswersAskedFor()
{
    const char* const value = secure_getenv("NQ_GEV_TL_STANDARD");
    return value != nullptr && std::strcmp(value, "1") == 0 ? kStandardAnswers : kStatedAnswers;
}
