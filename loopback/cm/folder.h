// SPDX-License-Identifier: Apache-2.0
// The folder through which processes find each other: one socket per bound address, named after it.
#pragma once

#include "base/net_scope.h"
#include "base/settings.h"
#include "base/unique_fd.h"

#include <optional>
#include <string>
#include <vector>

namespace nq::loopback
{

/// What the name of a socket says: PORT_NETWORKNAMESPACE_ADDRESS_PROCESS_NUMBER.
struct FolderEntry
{
    std::string name;
    unsigned port = 0;
    unsigned long long scope = 0;
    std::string host; ///< FolderEntry::kAnyHost for all addresses.
    int process = 0;

    static constexpr const char* kAnyHost = "any";

    /// The name of a new socket of this process, never given twice.
    static std::string NewName(const Endpoint& address, const NetScope& scope);
    static std::optional<FolderEntry> Parse(const char* name);
};

/// The folder, open. Strangers have no part in it: it is a folder and no link to one, belongs to the effective user and
/// gives nobody else any right. Operations throw std::system_error.
class Folder
{
  public:
    /// Makes the folder of the settings when there is none. Throws EACCES for one that others could take part in.
    Folder();

    /// Holds the folder against other processes that change it. Gives up with ETIMEDOUT after the connect timeout.
    class Lock
    {
      public:
        explicit Lock(const Folder& folder);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

      private:
        int m_fd;
    };

    std::vector<FolderEntry> Entries() const;

    /// Connects to the owner of an entry, who has to be of the same user; empty when there is none.
    UniqueFd Reach(const FolderEntry& entry) const;

    /// Removes the sockets of processes that have ended. Under the lock: a name may be a new socket's by then.
    void RemoveDead(const Lock& lock) const;
    void RemoveIfDead(const std::string& name, const Lock& lock) const;

    /// Makes `socket` listen under `name`. Nobody sees the name before it does. Under the lock.
    void Publish(int socket, const std::string& name, const Lock& lock) const;

    void Remove(const std::string& name) const;

  private:
    std::vector<std::string> Names() const;
    int Connect(int socket, const std::string& name) const;

    UniqueFd m_fd;
};

} // namespace nq::loopback
