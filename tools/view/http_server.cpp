// SPDX-License-Identifier: Apache-2.0
// Accepts connections on one address and answers each on a thread of its own.
#include "view/http_server.h"

#include "exit_codes.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <fmt/format.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace nq::tool::view
{

namespace
{

constexpr size_t kMostConnections = 64;
constexpr int kBacklog = 128;
constexpr std::chrono::seconds kRequestPatience{5};

/// So little lies between the newest picture and who looks at it over a slow line.
constexpr int kSendBuffer = 65536;

[[noreturn]] void Fail(const std::string& address, uint16_t port)
{
    throw ToolFailure(ExitCode::Failure, fmt::format("cannot listen on {} port {}: {}", address, port,
                                                     std::system_category().message(errno)));
}

} // namespace

HttpServer::HttpServer(const std::string& address, uint16_t port)
{
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1)
    {
        throw ToolFailure(ExitCode::Usage, fmt::format("{} is no IPv4 address", address));
    }
    m_file = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    socklen_t size = sizeof name;
    setsockopt(m_file, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    setsockopt(m_file, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    if (m_file < 0 || bind(m_file, reinterpret_cast<const sockaddr*>(&name), size) != 0 ||
        listen(m_file, kBacklog) != 0 || getsockname(m_file, reinterpret_cast<sockaddr*>(&name), &size) != 0)
    {
        const int why = errno;
        close(m_file);
        errno = why;
        Fail(address, port);
    }
    m_port = ntohs(name.sin_port);
}

HttpServer::~HttpServer()
{
    Stop();
    close(m_file);
}

void HttpServer::Start(Handler handler)
{
    m_handler = std::move(handler);
    m_accepting = std::thread([this] { Accept(); });
}

void HttpServer::Stop()
{
    m_stopping = true;
    if (m_accepting.joinable())
    {
        m_accepting.join();
    }
    for (const auto& worker : m_workers)
    {
        worker->connection.Cut();
    }
    for (const auto& worker : m_workers)
    {
        worker->thread.join();
    }
    m_workers.clear();
}

void HttpServer::Accept()
{
    constexpr int kSliceMs = 100; // how soon the end is noticed
    while (!m_stopping)
    {
        pollfd incoming{m_file, POLLIN, 0};
        if (poll(&incoming, 1, kSliceMs) <= 0)
        {
            DropEnded();
            continue;
        }
        const int file = accept4(m_file, nullptr, nullptr, SOCK_CLOEXEC);
        if (file >= 0)
        {
            Take(file);
        }
        else if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS)
        {
            DropEnded();
            poll(nullptr, 0, kSliceMs); // it stays in the queue
        }
    }
}

void HttpServer::Take(int file)
{
    auto worker = std::make_unique<Worker>(file);
    DropEnded();
    if (!MakeRoom())
    {
        worker->connection.Answer(503, "text/plain; charset=utf-8", "too many connections\n");
        return;
    }
    Worker& one = *worker;
    m_workers.push_back(std::move(worker));
    try
    {
        one.thread = std::thread([this, &one] { Serve(one); });
    }
    catch (const std::system_error&) // no thread for it: the other side sees its end
    {
        m_workers.pop_back();
    }
}

/// Nobody who sends nothing keeps others out.
bool HttpServer::MakeRoom()
{
    if (m_workers.size() < kMostConnections)
    {
        return true;
    }
    const auto idle = std::find_if(m_workers.begin(), m_workers.end(), [](const auto& one) { return !one->asked; });
    if (idle == m_workers.end())
    {
        return false;
    }
    (*idle)->connection.Cut();
    (*idle)->thread.join();
    m_workers.erase(idle);
    return true;
}

void HttpServer::DropEnded()
{
    for (auto at = m_workers.begin(); at != m_workers.end();)
    {
        if ((*at)->done)
        {
            (*at)->thread.join();
            at = m_workers.erase(at);
        }
        else
        {
            ++at;
        }
    }
}

void HttpServer::Serve(Worker& worker)
{
    try
    {
        const std::optional<HttpRequest> request = worker.connection.Receive(kRequestPatience);
        worker.asked = true;
        if (request && !m_stopping)
        {
            m_handler(*request, worker.connection);
        }
    }
    catch (const std::exception&) // no memory for this one: its end is all that it hears
    {
    }
    worker.connection.Cut();
    worker.done = true;
}

} // namespace nq::tool::view
