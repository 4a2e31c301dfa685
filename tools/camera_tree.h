// SPDX-License-Identifier: Apache-2.0
// The module tree of a producer, opened downward and closed by scope.
#pragma once

#include "gentl_library.h"

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace nq::tool
{

/// One camera as an interface lists it.
struct CameraEntry
{
    std::string interfaceId;
    std::string id;
    std::string vendor;
    std::string model;
    std::string serial;
    std::string userName;
    std::string address;     ///< dotted IPv4 text; empty when the producer does not tell
    uint64_t macAddress = 0; ///< 0 when the producer does not tell
    uint64_t accessStatus = 0;
};

/// One interface with the cameras it found.
struct InterfaceEntry
{
    std::string id;
    std::string displayName;
    std::vector<CameraEntry> cameras;
};

/// The opened system module. Closed with the object.
class System
{
  public:
    /// Opens the system and updates its interface list. Throws GenTLError.
    explicit System(GenTLLibrary& library);
    ~System();
    System(const System&) = delete;
    System& operator=(const System&) = delete;

    GenTL::TL_HANDLE Handle() const { return m_handle; }
    GenTLLibrary& Library() const { return m_library; }

    /// True for the producer of this project, which offers the commands of nq_gev_gentl.h.
    bool IsOurs() const;

    /// Whether the producer of this project gives its own answers and not the standard's; false for any other one.
    bool GivesStatedAnswers() const;

    /// Has the list of interfaces made anew; it stays as it is when the producer takes too long. Throws GenTLError.
    void Update() const;

    std::vector<std::string> InterfaceIds() const;

    /// A text about the system; an empty one when the producer does not offer it.
    std::string Text(GenTL::TL_INFO_CMD command) const;

  private:
    GenTLLibrary& m_library;
    GenTL::TL_HANDLE m_handle = nullptr;
};

/// One opened interface module. Closed with the object.
class Interface
{
  public:
    Interface(const System& system, const std::string& id);
    ~Interface();
    Interface(const Interface&) = delete;
    Interface& operator=(const Interface&) = delete;

    /// Looks for cameras during `timeoutMs` milliseconds and describes what it found.
    InterfaceEntry Scan(uint64_t timeoutMs) const;

    /// Scans shortly first and then longer, up to half a second, until the camera is in the list, and opens it. Gives
    /// the answer of IFOpenDevice; throws GenTLError when a scan fails. Any thread may call it.
    GenTL::GC_ERROR OpenCamera(const std::string& cameraId, GenTL::DEV_HANDLE* device,
                               GenTL::DEVICE_ACCESS_FLAGS access = GenTL::DEVICE_ACCESS_CONTROL);

    const System& Parent() const { return m_system; }
    const std::string& Id() const { return m_id; }
    GenTL::IF_HANDLE Handle() const { return m_handle; }

  private:
    void LookFor(const std::string& cameraId, uint64_t timeoutMs) const;
    CameraEntry Describe(const std::string& cameraId) const;

    const System& m_system;
    std::string m_id;
    GenTL::IF_HANDLE m_handle = nullptr;
    std::mutex m_opening; ///< No list changes between the look for a camera and its opening.
};

/// How long to scan again and again for a camera that is likely to answer at once: a few short times, then `longestMs`.
std::vector<uint64_t> ShortScansFirst(uint64_t longestMs);

/// Scans every interface, and calls `afterEach` behind each.
std::vector<InterfaceEntry> ScanAll(
    const System& system, uint64_t timeoutMs, const std::function<void()>& afterEach = [] {});

/// The same for a machine whose interfaces come and go: looks for them first, and one that cannot be scanned has no
/// cameras.
std::vector<InterfaceEntry> ScanAnew(const System& system, uint64_t timeoutMs, const std::function<void()>& afterEach);

/// Dotted text of an IPv4 address in host order.
std::string DottedAddress(uint64_t address);

/// The GenTL name of an access status, in words.
std::string AccessStatusText(uint64_t status);

} // namespace nq::tool
