// SPDX-License-Identifier: Apache-2.0
// What the writer of register descriptions makes of texts that XML reserves characters for, and of texts left out.
#include "gev/nq_gev_xml_writer.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::Not;

TEST(RegisterDescriptionWriter, ReservedCharactersAreEscaped)
{
    NQGevXmlWriter writer("model", "tip");
    writer.Add(NQGevXmlFeature{.type = "Integer", .name = "A", .toolTip = "1 < 2 & 3 > 2", .description = "<&>"});
    const std::string text = writer.Finish({});
    EXPECT_THAT(text, HasSubstr("<ToolTip>1 &lt; 2 &amp; 3 &gt; 2</ToolTip>"));
    EXPECT_THAT(text, HasSubstr("<Description>&lt;&amp;&gt;</Description>"));
}

TEST(RegisterDescriptionWriter, ADescriptionLeftOutIsTheToolTip)
{
    NQGevXmlWriter writer("model", "tip");
    writer.Add(NQGevXmlCategory{.name = "Same", .toolTip = "short"});
    writer.Add(NQGevXmlCategory{.name = "Other", .toolTip = "brief", .description = "long"});
    const std::string text = writer.Finish({});
    EXPECT_THAT(text, HasSubstr("<Description>short</Description>"));
    EXPECT_THAT(text, HasSubstr("<Description>long</Description>"));
    EXPECT_THAT(text, Not(HasSubstr("<Description>brief</Description>")));
}

TEST(RegisterDescriptionWriter, ElementsWithoutATextAreLeftOut)
{
    NQGevXmlWriter writer("model", "tip");
    writer.Add(NQGevXmlFeature{.type = "Integer", .name = "Bare"});
    const std::string text = writer.Finish({});
    EXPECT_THAT(text, HasSubstr("<Integer Name=\"Bare\">"));
    for (const char* const element : {"<ToolTip>", "<Description>", "<DisplayName>", "<Visibility>", "<pValue>"})
    {
        EXPECT_THAT(text, Not(HasSubstr(element)));
    }
}
