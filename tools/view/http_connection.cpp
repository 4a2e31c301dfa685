// SPDX-License-Identifier: Apache-2.0
// One accepted connection: reads one request, writes one answer, and is closed.
#include "view/http_connection.h"

#include <algorithm>
#include <cerrno>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace nq::tool::view
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr timeval kSendPatience{60, 0};

/// No other page may show, read or script this one, and it loads nothing from elsewhere.
constexpr const char* kSafety =
    "Cache-Control: no-store\r\n"
    "Connection: close\r\n"
    "Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; "
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'\r\n"
    "Cross-Origin-Opener-Policy: same-origin\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n"
    "Referrer-Policy: no-referrer\r\n"
    "X-Content-Type-Options: nosniff\r\n";

const char* Reason(int status)
{
    switch (status)
    {
    case 200:
        return "OK";
    case 400:
        return "Bad Request";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 408:
        return "Request Timeout";
    case 409:
        return "Conflict";
    case 413:
        return "Content Too Large";
    case 431:
        return "Request Header Fields Too Large";
    case 503:
        return "Service Unavailable";
    default:
        return "Error";
    }
}

} // namespace

HttpConnection::HttpConnection(int file) : m_file(file)
{
    setsockopt(file, SOL_SOCKET, SO_SNDTIMEO, &kSendPatience, sizeof kSendPatience);
}

HttpConnection::~HttpConnection()
{
    close(m_file);
}

bool HttpConnection::ReadMore(std::string& bytes, Clock::time_point end) const
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    pollfd readable{m_file, POLLIN, 0};
    if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) <= 0)
    {
        return false;
    }
    char part[4096];
    const ssize_t size = recv(m_file, part, sizeof part, 0);
    bytes.append(part, static_cast<size_t>(std::max<ssize_t>(size, 0)));
    return size > 0;
}

std::optional<std::string> HttpConnection::ReadHead(Clock::time_point end, std::string& rest)
{
    std::string bytes;
    size_t blank = std::string::npos;
    while (blank == std::string::npos)
    {
        if (bytes.size() > kMostHead)
        {
            Refuse(431);
            return std::nullopt;
        }
        if (!ReadMore(bytes, end))
        {
            if (!bytes.empty())
            {
                Refuse(408);
            }
            return std::nullopt;
        }
        blank = bytes.find("\r\n\r\n");
    }
    rest = bytes.substr(blank + 4);
    bytes.resize(blank);
    return bytes;
}

std::optional<HttpRequest> HttpConnection::Receive(std::chrono::milliseconds patience)
{
    const Clock::time_point end = Clock::now() + patience;
    std::string body;
    const std::optional<std::string> head = ReadHead(end, body);
    if (!head)
    {
        return std::nullopt;
    }
    std::optional<HttpRequest> request = ParseHead(*head);
    const size_t length = request ? BodyLength(*request) : 0;
    if (!request || length > kMostBody)
    {
        Refuse(request ? 413 : 400);
        return std::nullopt;
    }
    while (body.size() < length)
    {
        if (!ReadMore(body, end))
        {
            Refuse(408);
            return std::nullopt;
        }
    }
    body.resize(length);
    request->body = std::move(body);
    return request;
}

/// What is still on its way must be read before the end, or the other side hears of a reset instead of the answer.
void HttpConnection::Refuse(int status)
{
    constexpr std::chrono::seconds kPatience{3};
    constexpr size_t kMostDrained = size_t{1} << 20;
    Answer(status, "text/plain; charset=utf-8", fmt::format("{}\n", Reason(status)));
    shutdown(m_file, SHUT_WR);
    std::string dropped;
    for (size_t drained = 0; drained < kMostDrained && ReadMore(dropped, Clock::now() + kPatience); dropped.clear())
    {
        drained += dropped.size();
    }
}

bool HttpConnection::Answer(int status, const char* type, std::string_view body)
{
    return Send(fmt::format("HTTP/1.1 {} {}\r\nContent-Type: {}\r\nContent-Length: {}\r\n{}\r\n", status,
                            Reason(status), type, body.size(), kSafety)) &&
           Send(body);
}

bool HttpConnection::Begin(const char* type)
{
    return Send(fmt::format("HTTP/1.1 200 OK\r\nContent-Type: {}\r\n{}\r\n", type, kSafety));
}

bool HttpConnection::Send(std::string_view bytes)
{
    while (!bytes.empty())
    {
        const ssize_t sent = send(m_file, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
        {
            continue;
        }
        if (sent <= 0)
        {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

bool HttpConnection::IsGone() const
{
    pollfd state{m_file, POLLRDHUP, 0};
    return poll(&state, 1, 0) > 0;
}

void HttpConnection::Cut() const
{
    shutdown(m_file, SHUT_RDWR);
}

} // namespace nq::tool::view
