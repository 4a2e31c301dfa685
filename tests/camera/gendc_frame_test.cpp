// SPDX-License-Identifier: Apache-2.0
// The descriptor in front of the virtual camera's pixels, byte by byte.
#include "camera/gendc_frame.h"
#include "camera/raw_host.h"

#include <gtest/gtest.h>

using namespace nq::camera;
using nq::test::Hex;
using nq::test::Octets;
using nq::test::operator+;

TEST(CameraGenDcFrame, DescriptorHoldsOneComponentWithOnePart)
{
    FrameTicket ticket;
    ticket.id = 0x0102030405060708;
    ticket.timestamp = 0x1112131415161718;
    ticket.offsetX = 0x21;
    ticket.offsetY = 0x22;
    ticket.picture = {640, 480, *FindPixelFormat(0x01080001), TestPattern::MovingRamp};
    Octets descriptor(176, 0xEE);
    WriteGenDcDescriptor(ticket, std::span<std::uint8_t, 176>(descriptor));

    const Octets container = Hex("47 4E 44 43 01 01 00 00 00 10 00 00 40 00 00 00") + // GNDC 1.1.0, type, flags, size
                             Hex("08 07 06 05 04 03 02 01") + Octets(8) +             // id, variable fields
                             Hex("00 B0 04 00 00 00 00 00 B0 00 00 00 00 00 00 00") + // data size, data offset
                             Hex("B0 00 00 00 01 00 00 00 40 00 00 00 00 00 00 00");  // descriptor, components, offset
    const Octets component = Hex("00 20 00 00 38 00 00 00 00 00 00 00 00 00 00 00") + // type, size, source
                             Hex("21 00 00 00 22 00 00 00") +                         // region
                             Hex("18 17 16 15 14 13 12 11") +                         // timestamp
                             Hex("01 00 00 00 00 00 00 00 01 00 08 01 00 00 01 00") + // intensity, format, one part
                             Hex("78 00 00 00 00 00 00 00");                          // offset of the part
    const Octets part = Hex("00 42 00 00 38 00 00 00 01 00 08 01 00 00 00 00") +      // 2D, size, format
                        Octets(8) + Hex("00 B0 04 00 00 00 00 00 B0 00 00 00 00 00 00 00") + // flow, size, offset
                        Hex("80 02 00 00 E0 01 00 00") + Octets(8);                          // width, height, padding
    EXPECT_EQ(descriptor, container + component + part);
}
