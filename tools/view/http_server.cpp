// SPDX-License-Identifier: Apache-2.0
// The server of cpp-httplib, with limits to what a stranger may send and to how many come at once.
#include "view/http_server.h"

#include "exit_codes.h"
#include "view/bounded_stream.h"

#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <fmt/format.h>
#include <string_view>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace nq::tool::view
{

namespace
{

using httplib::Request;
using httplib::Response;

constexpr int kBacklog = 128;
constexpr size_t kMostBody = 65536;
constexpr std::chrono::seconds kRequestPatience{5};
constexpr std::chrono::seconds kDrainPatience{3};
constexpr std::chrono::seconds kSendPatience{60};

/// Threads that refuse who comes when all others are busy.
constexpr size_t kRefusing = 4;

/// So little lies between the newest picture and who looks at it over a slow line.
constexpr int kSendBuffer = 65536;

constexpr std::string_view kTooMany = "HTTP/1.1 503 Service Unavailable\r\nContent-Type: text/plain\r\nConnection: "
                                      "close\r\nContent-Length: 21\r\n\r\ntoo many connections\n";

/// No other page may show, read or script this one, and it loads nothing from elsewhere.
httplib::Headers SafeHeaders()
{
    return {{"Cache-Control", "no-store"},
            {"Content-Security-Policy",
             "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; connect-src 'self'; "
             "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
            {"Cross-Origin-Opener-Policy", "same-origin"},
            {"Cross-Origin-Resource-Policy", "same-origin"},
            {"Referrer-Policy", "no-referrer"},
            {"X-Content-Type-Options", "nosniff"}};
}

/// The HTTP status for a body that is not read; 0 for one that is. A packed one could be of any size.
int RefusalOfBody(const Request& request)
{
    const std::string length = request.get_header_value("Content-Length");
    size_t size = 0;
    const auto [end, error] = std::from_chars(length.data(), length.data() + length.size(), size);
    if (length.empty() || request.has_header("Transfer-Encoding"))
    {
        return 411;
    }
    if (request.has_header("Content-Encoding"))
    {
        return 415;
    }
    return error == std::errc() && end == length.data() + length.size() && size <= kMostBody ? 0 : 413;
}

/// Nothing is packed, which costs more time than the line to this host, and no answer is given in parts.
void Simplify(Request& request)
{
    request.headers.erase("Accept-Encoding");
    request.headers.erase("Range");
    request.ranges.clear();
}

} // namespace

HttpServer::HttpServer(const std::string& address, uint16_t port)
{
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1)
    {
        throw ToolFailure(ExitCode::Usage, fmt::format("{} is no IPv4 address", address));
    }
    set_socket_options([](int file) {
        const int yes = 1;
        setsockopt(file, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        setsockopt(file, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    });
    set_write_timeout(kSendPatience);
    set_payload_max_length(kMostBody);
    set_default_headers(SafeHeaders());
    new_task_queue = [] { return new httplib::ThreadPool(kMostConnections + kRefusing); };
    const int bound = port == 0 ? bind_to_any_port(address) : bind_to_port(address, port) ? port : -1;
    if (bound <= 0 || ::listen(svr_sock_, kBacklog) != 0) // its own queue is of five
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("cannot listen on {} port {}: {}", address, port,
                                                         std::system_category().message(errno)));
    }
    m_port = static_cast<uint16_t>(bound);
}

HttpServer::~HttpServer()
{
    Stop();
}

void HttpServer::Start(const Handler& handler, const BodyHandler& withBody)
{
    set_pre_routing_handler([handler](const Request& request, Response& response) {
        if (!handler(request, response))
        {
            const int refusal = RefusalOfBody(request);
            if (refusal == 0)
            {
                return HandlerResponse::Unhandled;
            }
            response.status = refusal;
        }
        return HandlerResponse::Handled;
    });
    Post(".*", withBody);
    m_listening = std::thread([this] {
        if (!listen_after_bind())
        {
            svr_sock_ = INVALID_SOCKET; // which it has closed
        }
    });
}

void HttpServer::Stop()
{
    // Not by stop(), which does nothing before the thread has begun to listen.
    const int file = svr_sock_.exchange(INVALID_SOCKET);
    shutdown(file, SHUT_RDWR);
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
        for (const int open : m_open)
        {
            shutdown(open, SHUT_RDWR);
        }
    }
    if (m_listening.joinable())
    {
        m_listening.join();
    }
    if (file != INVALID_SOCKET)
    {
        close(file);
    }
}

bool HttpServer::process_and_close_socket(int file)
{
    fcntl(file, F_SETFD, FD_CLOEXEC);
    if (Enter(file))
    {
        try
        {
            Serve(file);
        }
        catch (const std::exception&) // no memory for this one: its end is all that it hears
        {
        }
        Leave(file);
    }
    else
    {
        send(file, kTooMany.data(), kTooMany.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        close(file);
    }
    return true;
}

void HttpServer::Serve(int file)
{
    BoundedStream stream(file, BoundedStream::Clock::now() + kRequestPatience);
    bool closed = false;
    const auto process = [&](auto& server) {
        if constexpr (requires { server.process_request(stream, true, closed, Simplify); })
        {
            server.process_request(stream, true, closed, Simplify);
        }
        else // a later version of the library
        {
            server.process_request(stream, "", 0, "", 0, true, closed, Simplify);
        }
    };
    process(*this);
    stream.Drain(BoundedStream::Clock::now() + kDrainPatience);
}

bool HttpServer::Enter(int file)
{
    const std::lock_guard lock(m_mutex);
    return !m_stopping && m_open.size() < kMostConnections && m_open.insert(file).second;
}

void HttpServer::Leave(int file)
{
    const std::lock_guard lock(m_mutex); // Stop() never cuts another's socket of the same number
    m_open.erase(file);
    close(file);
}

} // namespace nq::tool::view
