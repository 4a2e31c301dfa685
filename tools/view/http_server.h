// SPDX-License-Identifier: Apache-2.0
// The server of cpp-httplib, with limits to what a stranger may send and to how many come at once.
#pragma once

#include <cstdint>
#include <functional>
#include <httplib.h>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace nq::tool::view
{

/// One request each connection. At most kMostConnections are open at once, a further one is refused; one without a
/// whole request within five seconds ends, and so does an answer of which the other side takes nothing for a minute.
class HttpServer : private httplib::Server
{
  public:
    static constexpr size_t kMostConnections = 128;

    /// Answers a request before its body is read; called on many threads at once. False when it wants the body.
    using Handler = std::function<bool(const httplib::Request& request, httplib::Response& response)>;

    /// Answers a POST with its body.
    using BodyHandler = std::function<void(const httplib::Request& request, httplib::Response& response)>;

    /// Listens on the IPv4 address, on the port or, for 0, on one that is free. Throws ToolFailure.
    HttpServer(const std::string& address, uint16_t port);
    ~HttpServer() override;
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    uint16_t Port() const { return m_port; }

    /// Begins to answer.
    void Start(const Handler& handler, const BodyHandler& withBody);

    /// False after Stop(), or when the kernel takes no connections any more.
    bool IsListening() const { return svr_sock_ != INVALID_SOCKET; }

    /// Cuts all connections and waits until nobody is answered any more.
    void Stop();

  private:
    bool process_and_close_socket(int file) override;
    void Serve(int file);
    bool Enter(int file);
    void Leave(int file);

    uint16_t m_port = 0;
    std::thread m_listening;
    std::mutex m_mutex; ///< of all below
    bool m_stopping = false;
    std::set<int> m_open; ///< the sockets of who is being answered
};

} // namespace nq::tool::view
