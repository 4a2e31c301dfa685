// SPDX-License-Identifier: Apache-2.0
// Accepts connections on one address and answers each on a thread of its own.
#pragma once

#include "view/http_connection.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <thread>

namespace nq::tool::view
{

/// At most 64 connections are open at once. When a further one comes, the oldest without a whole request gives way;
/// when all are being answered, the new one is refused.
class HttpServer
{
  public:
    /// Answers a request; called on many threads at once. An answer without an end returns when IsStopping() is true or
    /// the connection is gone.
    using Handler = std::function<void(const HttpRequest& request, HttpConnection& connection)>;

    /// Listens on the IPv4 address, on the port or, for 0, on one that is free. Throws ToolFailure.
    HttpServer(const std::string& address, uint16_t port);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    uint16_t Port() const { return m_port; }

    /// Begins to answer.
    void Start(Handler handler);

    /// Cuts all connections and waits until nobody is answered any more.
    void Stop();

    bool IsStopping() const { return m_stopping; }

  private:
    struct Worker
    {
        explicit Worker(int file) : connection(file) {}

        HttpConnection connection;
        std::atomic<bool> asked{false}; ///< its request is whole
        std::atomic<bool> done{false};
        std::thread thread;
    };

    void Accept();
    void Take(int file);
    void Serve(Worker& worker);
    void DropEnded();
    bool MakeRoom();

    int m_file = -1;
    uint16_t m_port = 0;
    Handler m_handler;
    std::atomic<bool> m_stopping{false};
    std::thread m_accepting;
    std::list<std::unique_ptr<Worker>>
        m_workers; ///< in the order of their coming; of the accepting thread, until it ended
};

} // namespace nq::tool::view
