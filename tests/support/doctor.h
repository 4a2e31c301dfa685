// SPDX-License-Identifier: Apache-2.0
// nq-gev doctor as a test runs it: its lines, and machines that are made up of files.
#pragma once

#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace nq::test
{

/// A line of the doctor up to its text: "right      adapter.up          ".
inline std::string Beginning(std::string verdict, std::string id)
{
    verdict.resize(11, ' ');
    id.resize(20, ' ');
    return verdict + id;
}

/// That the doctor calls it right, in that text, which begins with "SUBJECT: " where there is a subject.
inline auto Right(const std::string& id, const std::string& text)
{
    return testing::HasSubstr(Beginning("right", id) + text);
}

/// That it calls it wrong and gives that line to mend it.
inline auto Wrong(const std::string& id, const std::string& text, const std::string& mend)
{
    return testing::HasSubstr(Beginning("wrong", id) + text + "\n           " + mend + "\n");
}

inline auto NotKnown(const std::string& id, const std::string& text)
{
    return testing::HasSubstr(Beginning("not known", id) + text);
}

inline Outcome RunDoctor(const std::vector<std::string>& arguments = {},
                         const std::vector<std::string>& environment = {})
{
    return RunTool(Joined({"--timeout", "1000", "doctor"}, arguments), environment);
}

/// The line that mends the one thing of that id.
inline std::string MendOf(const Outcome& doctor, const std::string& id)
{
    const std::size_t line = doctor.output.find(Beginning("wrong", id));
    const std::size_t start = line == std::string::npos ? line : doctor.output.find("\n           ", line);
    if (start == std::string::npos)
    {
        throw std::runtime_error("nothing wrong with " + id + ":\n" + doctor.output);
    }
    return doctor.output.substr(start + 12, doctor.output.find('\n', start + 1) - start - 12);
}

/// Files that stand for sys, proc and dev of a machine.
class MadeUpMachine
{
  public:
    /// An RDMA device "made0" of the adapter "host0" at 10.77.0.1, of which everything is right.
    MadeUpMachine()
    {
        const std::string port = "sys/class/infiniband/made0/ports/1/";
        Write(port + "state", "4: ACTIVE");
        Write(port + "link_layer", "Ethernet");
        Write(port + "gids/0", "0000:0000:0000:0000:0000:ffff:0a4d:0001");
        Write(port + "gid_attrs/types/0", "RoCE v2");
        Write(port + "gid_attrs/ndevs/0", "host0");
        Write("verbs/made0", "active_mtu: 1024\nmax_msg_sz: 1073741824");
        Write("sys/module/ib_uverbs/refcnt", "0");
        Write("sys/module/rdma_ucm/refcnt", "0");
        Write("dev/infiniband/rdma_cm", "");
        Write("dev/infiniband/uverbs0", "");
        Write("proc/self/status", "CapEff:\t0000000000004000");
        Write("proc/net/dev", "  host0: 100 1000000 30 20 10 40 0 0 0 0 0 0 0 0 0 0");
        Write("ethtool/host0", "     rx_pause: 5\n     tx_pause: 0");
    }

    void Write(const std::string& path, const std::string& text)
    {
        std::filesystem::create_directories(std::filesystem::path(m_folder / path).parent_path());
        std::ofstream(m_folder / path) << text << "\n";
    }

    void Remove(const std::string& path) { std::filesystem::remove_all(m_folder / path); }

    std::string operator/(const std::string& path) const { return m_folder / path; }
    const std::string& Path() const { return m_folder.Path(); }

    /// What the doctor says of it, beside the real network.
    Outcome Examine(const std::vector<std::string>& arguments = {}) const
    {
        return RunTool(Joined({"--timeout", "100", "doctor", "--root", Path()}, arguments));
    }

  private:
    TemporaryFolder m_folder;
};

} // namespace nq::test
