// SPDX-License-Identifier: Apache-2.0
// The modules of a producer, opened as deep as a rule needs, and shorthands for what rules ask again and again.
#pragma once

#include "context.h"

#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace nq::check
{

/// How deep a tree is opened.
enum class Depth
{
    Library, ///< GCInitLib only
    System,
    Interface, ///< that of the camera, or the first one
    Device,
    Stream ///< the first one of the device
};

/// Opens the modules down to a depth; the rule ends as not tried where that fails. Its end is GCCloseLib.
class Tree
{
  public:
    Tree(Context& context, Depth depth);
    virtual ~Tree();
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    void OpenSystem();
    void OpenInterface();
    void OpenDevice();
    void OpenStream();

    /// Updates the list of the interface until the camera is in it, for at most some seconds.
    void LookForCamera() const;

    GenTL::TL_HANDLE system = nullptr;
    GenTL::IF_HANDLE interface = nullptr;
    GenTL::DEV_HANDLE device = nullptr;
    GenTL::PORT_HANDLE remote = nullptr;
    GenTL::DS_HANDLE stream = nullptr;
    std::string interfaceId;
    std::string streamId;

  protected:
    Context& m_context;
};

/// Looks through all interfaces for the camera that `context.target` names, or for the first one. Ends by RuleEnded
/// with the ids of its interface and its own, in two lines.
void FindCamera(Context& context);

/// An info function with everything bound but type, buffer and size.
using InfoCall = std::function<GenTL::GC_ERROR(GenTL::INFO_DATATYPE*, void*, size_t*)>;

/// An id function with everything bound but buffer and size.
using IdCall = std::function<GenTL::GC_ERROR(char*, size_t*)>;

/// An info of a fixed size, as it is; nothing when the call fails.
template <class Value>
std::optional<Value> Info(const InfoCall& call)
{
    GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
    char bytes[64] = {};
    size_t size = sizeof bytes;
    if (call(&type, bytes, &size) != GenTL::GC_ERR_SUCCESS)
    {
        return std::nullopt;
    }
    Value value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

/// A text of at most 64 KiB; nothing when the call fails.
std::optional<std::string> TextInfo(const InfoCall& call);

/// An id; the code of a call that failed goes to `code`.
std::string Id(const IdCall& call, GenTL::GC_ERROR& code);

/// The ids of a list, in its order; the rule ends as not tried where that fails.
std::vector<std::string> InterfaceIds(Context& context, GenTL::TL_HANDLE system);
std::vector<std::string> DeviceIds(Context& context, GenTL::IF_HANDLE interface);
std::vector<std::string> StreamIds(Context& context, GenTL::DEV_HANDLE device);

std::optional<uint64_t> StreamNumber(Context& context, GenTL::DS_HANDLE stream, GenTL::STREAM_INFO_CMD command);
std::optional<bool> StreamFlag(Context& context, GenTL::DS_HANDLE stream, GenTL::STREAM_INFO_CMD command);

} // namespace nq::check
