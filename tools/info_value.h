// SPDX-License-Identifier: Apache-2.0
// What an info function answers, whatever its type.
#pragma once

#include "gentl_library.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace nq::tool
{

/// One answer as it came.
struct InfoAnswer
{
    GenTL::GC_ERROR code = GenTL::GC_ERR_SUCCESS;
    GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
    std::string bytes; ///< of the value; a text with its end
};

/// Asks for the size first and then for the value. One of more than 64 KiB counts as refused with GC_ERR_ERROR.
InfoAnswer AskInfo(const GenTLLibrary::InfoCall& call);

/// The type by its name without "INFO_DATATYPE_", or its number.
std::string InfoTypeText(GenTL::INFO_DATATYPE type);

/// The value for scripts: numbers, flags and texts as they are, lists of texts as lists, addresses and bytes in hex.
nlohmann::ordered_json InfoValueJson(const InfoAnswer& answer);

/// The text of an answer; nothing where there is none.
std::optional<std::string> InfoString(const InfoAnswer& answer);

/// The number of an answer; nothing where there is none.
std::optional<int64_t> InfoInteger(const InfoAnswer& answer);

/// The number of an event by its record, which producers tell as a number or as a hexadecimal text.
std::optional<int64_t> EventNumber(GenTLLibrary& library, GenTL::EVENT_HANDLE event, std::string_view record);

} // namespace nq::tool
