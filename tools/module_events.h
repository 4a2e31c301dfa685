// SPDX-License-Identifier: Apache-2.0
// The events of the modules of one camera, as they come.
#pragma once

#include "feature_access.h"
#include "module_session.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace nq::tool
{

/// One event, as its producer tells it.
struct HeardEvent
{
    std::chrono::system_clock::time_point time;
    std::string module;              ///< "system", "interface", "device" or "stream"
    std::string kind;                ///< "remote-device", "module", "error", ..., "connection"
    std::optional<int64_t> id;       ///< of the event; the code of an error, the access status of a connection
    std::optional<std::string> name; ///< by the description; of a feature or of an error's code
    std::optional<std::string> data; ///< bytes of a camera's or module's event
    std::optional<std::string> text; ///< of an error or connection, the value of a feature, or why no more come
    bool lost = false;               ///< a connection that has ended
};

/// Listens to every event that the modules of a session offer, but for new buffers, from the constructor on until it
/// goes, before its session. One thread for each event; used from one thread itself.
class ModuleEvents
{
  public:
    explicit ModuleEvents(ModuleSession& session);
    ~ModuleEvents();
    ModuleEvents(const ModuleEvents&) = delete;
    ModuleEvents& operator=(const ModuleEvents&) = delete;

    /// The next event; nothing when none came in that time. Throws ToolFailure when no module tells events (any more).
    std::optional<HeardEvent> Next(std::chrono::milliseconds timeout);

    /// Gets the description that the camera's events have their names from, unless features by name are left out.
    void LearnNames();

  private:
    struct Source
    {
        const char* module;
        GenTL::EVENTSRC_HANDLE handle;
        const char* kind;
        GenTL::EVENT_TYPE type;
        GenTL::PORT_HANDLE port; ///< whose description has the names
        GenTL::EVENT_HANDLE event;
    };

    void Register(const char* module, GenTL::EVENTSRC_HANDLE handle);
    void Listen(const Source& source);
    void End();
    HeardEvent Taken(const Source& source, const std::string& record) const;
    Features* NamesOf(GenTL::PORT_HANDLE port);

    ModuleSession& m_session;
    std::vector<Source> m_sources;
    std::map<GenTL::PORT_HANDLE, std::unique_ptr<Features>> m_names; ///< null for a description that cannot be had

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    std::deque<std::pair<const Source*, HeardEvent>> m_heard;
    size_t m_listening = 0;
    bool m_stop = false;

    std::vector<std::jthread> m_threads;
};

} // namespace nq::tool
