// SPDX-License-Identifier: Apache-2.0
// Where frames come from, in benchmarks: the library or one of its references.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace nq::bench
{

/// One frame. Its pixels stay until it is returned.
struct SourceFrame
{
    std::uint64_t id = 0;
    const std::uint8_t* pixels = nullptr;
    std::size_t size = 0;
    void* token = nullptr; ///< the source's own
};

/// How frames are to be received.
struct SourcePlan
{
    std::string camera; ///< its dotted IPv4 address
    std::size_t buffers = 8;
    std::string producer;   ///< the path of the library; of no matter for a reference
    bool announced = false; ///< Buffers of the consumer: the library's announced ones; a reference copies into them.
};

/// One acquisition after the other from one camera. The constructor of each source takes control of the camera, the
/// destructor gives it up. All throw exceptions of the standard library where something fails. Used from one thread.
class FrameSource
{
  public:
    virtual ~FrameSource() = default;

    virtual void Start() = 0;
    /// Waits for the next frame. False when none came in five seconds, or none will come any more.
    virtual bool Next(SourceFrame& frame) = 0;
    virtual void Return(const SourceFrame& frame) = 0;
    virtual void Stop() = 0;
};

/// One thread, that of the caller, with nothing between it and the verbs.
std::unique_ptr<FrameSource> MakeBareSource(const SourcePlan& plan);

/// The threads that the library has, with its four hand-overs between them: completions to acquisition, acquisition to
/// consumer, consumer to worker, completions to worker. Each is a queue under a mutex, and a condition variable.
std::unique_ptr<FrameSource> MakeHandoverSource(const SourcePlan& plan);

/// The library, as a consumer sees it.
std::unique_ptr<FrameSource> MakeLibrarySource(const SourcePlan& plan);

} // namespace nq::bench
