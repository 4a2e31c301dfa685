// SPDX-License-Identifier: Apache-2.0
// nq-gev view as a test runs it, and what its page asks for.
#pragma once

#include "support/http_client.h"
#include "support/tool.h"

#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace nq::test
{

/// Runs the verb until the object goes.
class View
{
  public:
    /// Throws std::runtime_error when it prints no address.
    View(const std::vector<std::string>& arguments, const std::vector<std::string>& environment)
        : m_process(Joined({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "view"}, arguments), environment)
    {
        m_process.WaitForOutput("/\n", kLongTime);
        const std::regex address("http://([0-9.]+):([0-9]+)/([0-9a-f]{32})/\n");
        std::smatch parts;
        if (!std::regex_search(m_process.Output(), parts, address))
        {
            throw std::runtime_error("no address: " + m_process.Output());
        }
        m_url = parts.str();
        m_url.pop_back();
        m_port = static_cast<uint16_t>(std::stoul(parts[2]));
        m_token = parts[3];
    }

    ChildProcess& Process() { return m_process; }
    const std::string& Url() const { return m_url; }
    uint16_t Port() const { return m_port; }
    const std::string& Token() const { return m_token; }

    /// A request with what the page sends, and further header lines.
    std::string Request(const std::string& method, const std::string& name, const std::string& body = "",
                        const std::string& headers = "") const
    {
        const std::string length = body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n";
        return method + " /" + m_token + "/" + name + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(m_port) +
               "\r\n" + length + headers + "\r\n" + body;
    }

    std::string Get(const std::string& name, const std::string& headers = "") const
    {
        return Answer(m_port, Request("GET", name, "", headers));
    }

    std::string Post(const std::string& name, const std::string& body = "{}", const std::string& headers = "") const
    {
        return Answer(m_port, Request("POST", name, body, headers));
    }

    /// The numbers as events, up to the first that `enough` takes; all of them when none comes.
    std::string Numbers(const std::function<bool(const std::string& event)>& enough) const
    {
        HttpClient client(m_port);
        client.Send(Request("GET", "numbers"));
        const std::string& all = client.Read([&](const std::string& read) {
            const size_t end = read.rfind("\n\n");
            const size_t begin = end == std::string::npos ? end : read.rfind("data: ", end);
            return begin != std::string::npos && enough(read.substr(begin, end - begin));
        });
        return all.substr(all.rfind("data: ", all.rfind("\n\n")));
    }

    /// The same, up to one that has the text.
    std::string NumbersWith(const std::string& text) const
    {
        return Numbers([&](const std::string& event) { return event.find(text) != std::string::npos; });
    }

  private:
    ChildProcess m_process;
    std::string m_url;
    uint16_t m_port = 0;
    std::string m_token;
};

/// The first number behind "NAME": in a JSON text; -1 when there is none.
inline double NumberIn(const std::string& json, const std::string& name)
{
    const size_t at = json.find("\"" + name + "\":");
    return at == std::string::npos ? -1 : std::strtod(json.c_str() + at + name.size() + 3, nullptr);
}

} // namespace nq::test
