// SPDX-License-Identifier: Apache-2.0
// What the kernel tells in files, of this machine or of one that was made up.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nq::tool::doctor
{

/// The files below a root. Paths are written without a leading slash. Nothing is kept open.
class Machine
{
  public:
    explicit Machine(std::string root) : m_root(std::move(root)) {}

    /// False for a tree that was made up: there, what the kernel tells by calls is read from files too,
    /// ethtool/ADAPTER and verbs/DEVICE, as lines "name: number".
    bool IsThisOne() const { return m_root == "/"; }

    std::string PathOf(const std::string& path) const;

    /// The text of a file without white space at its end; nothing when it cannot be read.
    std::optional<std::string> Text(const std::string& path) const;

    bool Has(const std::string& path) const;

    /// The names in a folder, sorted; none when it cannot be read.
    std::vector<std::string> Names(const std::string& folder) const;

    /// Why a file cannot be opened for reading and writing; empty when it can.
    std::string WhyNotOpen(const std::string& path) const;

    /// The lines "name: number" of a file.
    std::map<std::string, uint64_t> Numbers(const std::string& path) const;

  private:
    std::string m_root;
};

/// A variable that this process was started with; nothing when there was none.
std::optional<std::string> StartedWith(const std::string& variable);

} // namespace nq::tool::doctor
