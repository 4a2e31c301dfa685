// SPDX-License-Identifier: Apache-2.0
// What the fake producer answers: the truth, unless somebody chose otherwise.
#pragma once

#include "GenTL/GenTL.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace nq::fake
{

/// One answer of an info function, and of every other function by the members that apply to it.
struct Answer
{
    GenTL::GC_ERROR code = GenTL::GC_ERR_SUCCESS;
    GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
    std::string bytes;    ///< of the value, as the type has it; a text with its end
    std::size_t size = 0; ///< what is told as the size, which need not be that of the bytes
};

/// A value of that type.
Answer Value(GenTL::INFO_DATATYPE type, std::uint64_t value);
Answer Text(const std::string& text);

/// The value of an answer, its first 8 bytes.
std::uint64_t ValueOf(const Answer& answer);

/// The answer that was chosen in place of the true one. `name` is the function's, with ".COMMAND" for an info function.
Answer Chosen(const std::string& name, Answer truth);

} // namespace nq::fake
