// SPDX-License-Identifier: Apache-2.0
// A camera that cannot be reached any more when its command is to be sent again.
#include "gige/gige_camera.h"
#include "support/gvcp_camera.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace
{

using GigETL::Camera;
using nq::test::Bytes;
using nq::test::GvcpCamera;
using nq::test::GvcpRule;
using testing::SizeIs;
using namespace nq::test::gvcp;
using namespace std::chrono_literals;

constexpr unsigned int kLoopback = 0x7F000001;

/// Commands that still get through; negative: all do.
std::atomic<int> commandsLeft = -1;

/// Only the first command gets through. Its answer comes once the second was refused, when another wait would be
/// running.
class LostWay : public testing::Test
{
  protected:
    NQGigE_RETURN Run(const GvcpRule& answer, const std::function<NQGigE_RETURN(Camera&)>& access)
    {
        m_peer.Next([answer](const Bytes& command) {
            while (commandsLeft >= 0)
            {
                std::this_thread::sleep_for(1ms);
            }
            return answer(command);
        });
        Camera camera(kLoopback, 3956, kLoopback, MULTICAST_OFF);
        commandsLeft = 1;
        const NQGigE_RETURN result = access(camera);
        EXPECT_TRUE(m_peer.WaitForCount(1));
        EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
        return result;
    }

    GvcpCamera m_peer;
    std::array<unsigned char, 4> m_data{};
    unsigned int m_value = 0;
};

} // namespace

/// Takes the place of the C library's function, so that commands can be refused.
extern "C" ssize_t sendto(int descriptor, const void* data, size_t size, int flags, const sockaddr* to,
                          socklen_t length)
{
    sockaddr_in address{};
    std::memcpy(&address, to, std::min<std::size_t>(length, sizeof address));
    if (commandsLeft >= 0 && ntohs(address.sin_port) == 3956 && commandsLeft-- == 0)
    {
        errno = ENETUNREACH;
        return -1;
    }
    return syscall(SYS_sendto, descriptor, data, size, flags, to, length);
}

namespace
{

TEST_F(LostWay, EndsARegisterRead)
{
    EXPECT_EQ(Run(Value(7), [this](Camera& camera) { return camera.getGigECameraRegister(0xE030, &m_value); }), -212);
    EXPECT_EQ(m_value, 0xFFFFFFFFU);
}

TEST_F(LostWay, EndsARegisterWrite)
{
    EXPECT_EQ(Run(Acknowledge(), [](Camera& camera) { return camera.setGigECameraRegister(0xE030, 1); }), -212);
}

TEST_F(LostWay, EndsAMemoryRead)
{
    EXPECT_EQ(
        Run(Memory({1, 2, 3, 4}), [this](Camera& camera) { return camera.readCameraMemory(0, m_data.data(), 4); }),
        -212);
    EXPECT_EQ(m_data[0], 0);
}

TEST_F(LostWay, EndsAMemoryWrite)
{
    EXPECT_EQ(Run(Acknowledge(), [this](Camera& camera) { return camera.writeCameraMemory(0, m_data.data(), 4); }),
              -212);
}

} // namespace
