// SPDX-License-Identifier: Apache-2.0
// A connection as cpp-httplib reads a request from it: so much of it and no more, and not for ever.
#pragma once

#include <chrono>
#include <httplib.h>

namespace nq::tool::view
{

/// cpp-httplib keeps a line of a header, however long it is: here it sees the end of what is sent after kMostRequest
/// bytes, or at a point in time. Used from one thread; the socket stays its owner's.
class BoundedStream : public httplib::Stream
{
  public:
    using Clock = std::chrono::steady_clock;

    /// The largest request of all, in bytes.
    static constexpr size_t kMostRequest = 98304;

    BoundedStream(int file, Clock::time_point end) : m_file(file), m_end(end) {}

    bool is_readable() const override;

    /// Whether the other side is still there, which who only writes sees late.
    bool is_writable() const override;

    /// 0 where the request may have no more.
    ssize_t read(char* to, size_t size) override;

    /// Waits while the other side takes nothing, as long as the socket's SO_SNDTIMEO lets it; -1 then.
    ssize_t write(const char* from, size_t size) override;

    /// Nobody asks for the addresses.
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;

    int socket() const override { return m_file; }

    /// Reads what is still on its way until the other side ends, or the request's limits do: who closes before hears of
    /// a reset instead of the answer.
    void Drain(Clock::time_point end);

  private:
    bool Fill();

    const int m_file;
    Clock::time_point m_end;
    size_t m_left = kMostRequest;
    size_t m_at = 0;
    size_t m_held = 0;
    char m_buffer[4096];
};

} // namespace nq::tool::view
