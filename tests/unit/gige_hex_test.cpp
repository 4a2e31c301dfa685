// SPDX-License-Identifier: Apache-2.0
// Hexadecimal texts of the camera layer.
#include "gige/gige_camera.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

TEST(Hex, DigitOfEitherCaseHasItsValue)
{
    const std::string lower = "0123456789abcdef";
    const std::string upper = "0123456789ABCDEF";
    for (std::size_t value = 0; value < 16; ++value)
    {
        EXPECT_EQ(GigETL::atohex(lower[value]), value);
        EXPECT_EQ(GigETL::atohex(upper[value]), value);
    }
}

TEST(Hex, AnyOtherCharacterIsZero)
{
    for (int character = -128; character < 128; ++character)
    {
        const bool digit = (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f') ||
                           (character >= 'A' && character <= 'F');
        if (!digit)
        {
            EXPECT_EQ(GigETL::atohex(static_cast<char>(character)), 0) << character;
        }
    }
}

TEST(Hex, FirstFourDigitsGiveTheValue)
{
    EXPECT_EQ(GigETL::hexstringtovalue("12aB"), 0x12AB);
    EXPECT_EQ(GigETL::hexstringtovalue("FFFF0000"), 0xFFFF);
    EXPECT_EQ(GigETL::hexstringtovalue("1g34"), 0x1034);
}

TEST(Hex, TextShorterThanFourDigitsIsZero)
{
    EXPECT_EQ(GigETL::hexstringtovalue("123"), 0);
    EXPECT_EQ(GigETL::hexstringtovalue(""), 0);
}

TEST(Hex, FirstTwoDigitsGiveTheByte)
{
    EXPECT_EQ(GigETL::hextoc("7f"), 0x7F);
    EXPECT_EQ(GigETL::hextoc("C0FFEE"), 0xC0);
    EXPECT_EQ(GigETL::hextoc("5"), 0x50);
    EXPECT_EQ(GigETL::hextoc(std::string(1, '\0').c_str()), 0);
}

} // namespace
