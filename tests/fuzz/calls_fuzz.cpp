// SPDX-License-Identifier: Apache-2.0
// Sequences of the 57 exported functions, with good, stale and meaningless handles, on a host with one adapter, one
// camera and an RDMA device. A model of the states says what each call has to give.
#include "fuzz/calls/caller.h"
#include "support/fake_verbs_symbols.h"

namespace
{

/// A device opened, announced and started takes many calls; nothing is found in more than this.
constexpr int kMostCalls = 400;

} // namespace

/// Records of the connection event that are flushed, or wait when their event goes, are not freed: that is settled.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:NQGevThreadHeartbeat::_sendConnectionEvent";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    nq::test::FakeVerbs verbs;
    {
        nq::fuzz::FuzzInput input(data, size);
        nq::fuzz::FakeCamera camera;
        nq::fuzz::Caller caller(input, camera);
        for (int calls = 0; calls < kMostCalls && !input.Empty(); ++calls)
        {
            caller.Call();
        }
        caller.Finish();
    }
    nq::fuzz::Require(nq::fuzz::FakeNetwork::Instance().OpenSockets() == 0, "every socket is closed");
    nq::fuzz::Require(verbs.LiveObjects().empty(), "every object of the RDMA device is given back");
    nq::fuzz::Require(verbs.Violations().empty(), "no object of the RDMA device is given back too early");
    return 0;
}
