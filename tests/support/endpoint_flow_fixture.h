// SPDX-License-Identifier: Apache-2.0
// An endpoint whose connection, completions and frames a test plays, and the short ways to bring it to flow.
#pragma once

#include "support/endpoint_access.h"
#include "support/fake_verbs_symbols.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace nq::test
{

using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::string>;

constexpr std::uint32_t kPayload = 1024;
constexpr std::uint32_t kBlock = 1200;

/// Those of the calls that post work, in order.
inline Texts Posts(const Texts& calls)
{
    Texts posts;
    for (const std::string& call : calls)
    {
        if (call == "ibv_post_recv" || call == "ibv_post_send")
        {
            posts.push_back(call);
        }
    }
    return posts;
}

/// An endpoint on verbs that the test plays. Blocks hold `payload` bytes and the descriptor.
class EndpointFlowFixture : public testing::Test
{
  protected:
    ~EndpointFlowFixture() override
    {
        EXPECT_THAT(fake.Violations(), testing::IsEmpty());
        AllowThreads();
    }

    void Connect() { ASSERT_TRUE(endpoint->Init(&address)); }

    void Register(std::uint32_t buffers, std::uint64_t payloadSize = kPayload)
    {
        gevrdmaBufferSettings settings{};
        settings.payloadSize = payloadSize;
        settings.bufferCount = buffers;
        endpoint->SetBufferSettings(settings);
        endpoint->AllocateAndRegisterMemory();
    }

    /// Streams with every receive and every ready message posted.
    void Stream(std::uint32_t buffers)
    {
        Connect();
        Register(buffers);
        endpoint->StartWorkerThread();
        fake.WaitForSent(buffers);
    }

    std::uint64_t IdOf(std::size_t index)
    {
        return reinterpret_cast<std::uint64_t>(LvEndpointAccess::Receive(*endpoint, index));
    }

    TraceCapture trace;
    FakeVerbs fake;
    sockaddr_in address = CameraAddress();
    std::unique_ptr<LvEndpoint> endpoint = std::make_unique<LvEndpoint>();
};

} // namespace nq::test
