// SPDX-License-Identifier: Apache-2.0
// What one info query must give for every argument a consumer can pass.
#pragma once

#include "support/guarded.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>

namespace nq::test
{

/// An info function on one object, with its command: type, buffer, size.
using InfoQuery = std::function<int(int command, int* type, void* buffer, std::size_t* size)>;

struct InfoRow
{
    int command;
    int type;
    std::optional<std::string> bytes; ///< none: whatever the object says
    std::size_t size = bytes ? bytes->size() : 0;
};

inline InfoRow TextRow(int command, const std::string& text)
{
    return {command, 1, text + '\0'};
}

template <class Value>
InfoRow NumberRow(int command, int type, Value value)
{
    return {command, type, std::string(reinterpret_cast<const char*>(&value), sizeof value)};
}

/// What a query does to the consumer's buffer before it looks whether the answer fits.
enum class Before
{
    Clears,
    LeavesAlone
};

inline std::string Untouched(Before before, std::size_t size)
{
    return std::string(size, before == Before::Clears ? '\0' : '\xA5');
}

/// Null pointers, the question for the size, no space, a byte too little, exact space and too much of it.
inline void ExpectRow(const InfoQuery& ask, const InfoRow& row, Before before)
{
    SCOPED_TRACE("command " + std::to_string(row.command));
    const std::size_t needed = row.size;

    Guarded refused(needed);
    std::size_t size = needed;
    int type = -77;
    EXPECT_EQ(ask(row.command, nullptr, refused.Data(), &size), -1009);
    EXPECT_EQ(ask(row.command, &type, refused.Data(), nullptr), -1009);
    EXPECT_EQ(size, needed) << "refused";
    EXPECT_EQ(type, -77) << "refused";
    EXPECT_EQ(refused.Bytes(), std::string(needed, '\xA5')) << "refused";

    for (const std::size_t space : {std::size_t{0}, needed, std::size_t{987654}})
    {
        type = -77;
        size = space;
        EXPECT_EQ(ask(row.command, &type, nullptr, &size), 0) << "size query with " << space;
        EXPECT_EQ(type, row.type);
        EXPECT_EQ(size, needed);
    }
    for (const std::size_t space : {std::size_t{0}, needed - 1, needed, needed + 9})
    {
        SCOPED_TRACE("space " + std::to_string(space));
        Guarded buffer(space);
        type = -77;
        size = space;
        EXPECT_EQ(ask(row.command, &type, buffer.Data(), &size), space < needed ? -1016 : 0);
        EXPECT_EQ(type, row.type);
        EXPECT_EQ(size, needed);
        EXPECT_TRUE(buffer.IsIntact());
        if (space < needed)
        {
            EXPECT_EQ(buffer.Bytes(), Untouched(before, space));
        }
        else if (row.bytes)
        {
            EXPECT_EQ(buffer.Bytes(), *row.bytes + Untouched(before, space - needed));
        }
    }
}

/// A command without an answer: the code, and nothing stored in type and size.
inline void ExpectNoAnswer(const InfoQuery& ask, int command, int code, Before before)
{
    SCOPED_TRACE("command " + std::to_string(command));
    int type = -77;
    std::size_t size = 5;
    EXPECT_EQ(ask(command, &type, nullptr, &size), code);
    Guarded buffer(5);
    EXPECT_EQ(ask(command, &type, buffer.Data(), &size), code);
    EXPECT_EQ(type, -77);
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(buffer.Bytes(), Untouched(before, 5));
    EXPECT_TRUE(buffer.IsIntact());
    EXPECT_EQ(ask(command, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(ask(command, &type, nullptr, nullptr), -1009);
}

} // namespace nq::test
