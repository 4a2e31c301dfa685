// SPDX-License-Identifier: Apache-2.0
// The newest picture of a camera for those who look, made beside the stream.
#include "view/live_picture.h"

#include "view/jpeg.h"

#include <exception>
#include <sys/resource.h>
#include <unistd.h>

namespace nq::tool::view
{

namespace
{

constexpr std::chrono::milliseconds kLeastInterval{33};
constexpr std::chrono::seconds kWanted{1};
constexpr std::chrono::milliseconds kBellPatience{100};
constexpr int kNice = 10; // pictures give way to the stream

} // namespace

void Bell::Ring()
{
    const std::lock_guard lock(m_mutex);
    ++m_count;
    m_rung.notify_all();
}

uint64_t Bell::Wait(uint64_t heard)
{
    std::unique_lock lock(m_mutex);
    m_rung.wait_for(lock, kBellPatience, [&] { return m_count != heard; });
    return m_count;
}

LivePicture::LivePicture(Bell& bell) : m_bell(bell), m_worker([this] { Work(); }) {}

LivePicture::~LivePicture()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_offered.notify_one();
    m_worker.join();
}

void LivePicture::Offer(const Frame& frame)
{
    const Clock::time_point now = Clock::now();
    if (now < m_nextOffer)
    {
        return;
    }
    std::vector<uint8_t> memory;
    {
        const std::lock_guard lock(m_mutex);
        if (m_busy || now > m_wantedUntil)
        {
            return;
        }
        m_busy = true;
        memory = std::move(m_spare);
    }
    m_nextOffer = now + kLeastInterval;
    Picture copy = CopyOf(frame, std::chrono::system_clock::now(), std::move(memory));
    {
        const std::lock_guard lock(m_mutex);
        m_waiting = std::move(copy);
    }
    m_offered.notify_one();
}

std::shared_ptr<const ShownPicture> LivePicture::NewerThan(uint64_t number)
{
    const std::lock_guard lock(m_mutex);
    m_wantedUntil = Clock::now() + kWanted;
    return m_newest && m_newest->number > number ? m_newest : nullptr;
}

std::shared_ptr<const ShownPicture> LivePicture::Newest() const
{
    const std::lock_guard lock(m_mutex);
    return m_newest;
}

ShownPicture LivePicture::Shown(const Picture& picture)
{
    ShownPicture shown;
    shown.frameId = picture.frameId;
    shown.pixelFormat = picture.pixelFormat;
    try
    {
        shown.samples = SamplesOf(picture, false);
        shown.jpeg = JpegOf(SamplesOf(picture, true));
    }
    catch (const std::exception& unfit)
    {
        shown.problem = unfit.what(); // values can be asked for as far as there are any
    }
    return shown;
}

void LivePicture::Work()
{
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNice);
    for (uint64_t number = 1;; ++number)
    {
        std::unique_lock lock(m_mutex);
        m_offered.wait(lock, [this] { return m_stopping || m_waiting.has_value(); });
        if (m_stopping)
        {
            return;
        }
        Picture picture = std::move(*m_waiting);
        m_waiting.reset();
        lock.unlock();
        auto shown = std::make_shared<ShownPicture>(Shown(picture));
        shown->number = number;
        lock.lock();
        m_newest = std::move(shown);
        m_spare = std::move(picture.bytes);
        m_busy = false;
        lock.unlock();
        m_bell.Ring();
    }
}

} // namespace nq::tool::view
