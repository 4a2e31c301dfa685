// SPDX-License-Identifier: Apache-2.0
// One accepted connection: reads one request, writes one answer, and is closed.
#pragma once

#include "view/http_request.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace nq::tool::view
{

/// Used from one thread; Cut() may come from any.
class HttpConnection
{
  public:
    /// Takes the connected socket, which it closes when it goes.
    explicit HttpConnection(int file);
    ~HttpConnection();
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    /// The request, whole within `patience`. Nothing when there is none to answer; one that is too large or none at all
    /// has been refused then.
    std::optional<HttpRequest> Receive(std::chrono::milliseconds patience);

    /// A whole answer. False when the other side is gone.
    bool Answer(int status, const char* type, std::string_view body);

    /// The head of an answer without an end.
    bool Begin(const char* type);

    /// More of that answer. Waits while the other side takes nothing, at most a minute. False when it is gone.
    bool Send(std::string_view bytes);

    /// Whether the other side has closed its end, which who only writes sees late.
    bool IsGone() const;

    /// Ends what waits for the other side, from any thread.
    void Cut() const;

  private:
    std::optional<std::string> ReadHead(std::chrono::steady_clock::time_point end, std::string& rest);
    bool ReadMore(std::string& bytes, std::chrono::steady_clock::time_point end) const;
    void Refuse(int status);

    const int m_file;
};

} // namespace nq::tool::view
