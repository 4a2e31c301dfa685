// SPDX-License-Identifier: Apache-2.0
// The table of the camera's GenICam features: registers, register description, help and README are made from it.
#pragma once

#include "register_map.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace nq::camera
{

enum class FeatureKind
{
    Integer,
    Float,
    Enumeration,
    Boolean,
    Command,
    Text,
};

/// When a feature cannot be written.
enum class Lock
{
    Never,
    /// While the stream is enabled, or the host says that its buffers fit the size.
    Streaming,
    /// While an acquisition runs.
    Acquiring,
};

/// One value of an enumeration.
struct FeatureEntry
{
    const char* name = "";
    std::uint32_t value = 0;
    const char* tip = "";
};

/// One feature with its register. Features below `kFirstFeature` stand on a bootstrap register, which is made
/// elsewhere.
struct Feature
{
    const char* name = "";
    FeatureKind kind = FeatureKind::Integer;
    std::uint32_t address = 0;
    /// What it does, in one line.
    const char* tip = "";
    /// What the line leaves out; may be empty.
    const char* about = "";
    Access access = Access::ReadWrite;
    const char* visibility = "Beginner";
    /// At power on.
    double value = 0;
    double min = 0;
    double max = 4294967295;
    double step = 1;
    std::span<const FeatureEntry> entries = {};
    const char* unit = "";
    const char* representation = "";
    Lock lock = Lock::Never;
    /// Milliseconds after which a value that changes by itself is worth reading again; 0 for one that does not.
    std::uint32_t polling = 0;
    /// The enumeration, or the number from 0 on, that selects one of several registers, and their distance in bytes.
    const char* selector = "";
    std::uint32_t stride = 4;
    /// Features whose write changes this one, separated by blanks.
    const char* changedBy = "";
    /// The maximum depends on other features: the camera tells it in a register of its own.
    bool movingMax = false;
    /// The step, and a minimum that is not 0, is that of --width-step.
    bool steppedWidth = false;
    /// Not all entries are always there: the camera tells it in a register, a bit for each from the lowest.
    bool movingEntries = false;
    /// It is there only sometimes: the camera tells it in a register of its own.
    bool conditional = false;
    /// User sets hold it.
    bool inUserSet = false;
    /// Bytes of the register, and of a field the bits of its register, counted from the most significant.
    std::uint32_t length = 4;
    std::uint32_t firstBit = 0;
    std::uint32_t lastBit = 31;
    /// What a command writes.
    std::uint32_t commandValue = 1;
    /// The event whose packet holds the value, at `address` behind the packet's header; 0 for a register.
    std::uint32_t eventId = 0;

    bool IsField() const { return firstBit != 0 || lastBit != 31; }
};

/// The features of one category, which is named in SFNC's way.
struct FeatureCategory
{
    const char* name = "";
    const char* tip = "";
    std::span<const Feature> features;
};

/// All features, by category.
std::span<const FeatureCategory> FeatureTable();

/// The feature with this name; throws std::logic_error when there is none.
const Feature& FeatureByName(std::string_view name);

/// The feature to whose own register the address belongs, or null.
const Feature* FeatureAt(std::uint32_t address);

/// Number of registers: one, or one for each entry or number of the selector.
std::uint32_t RegisterCount(const Feature& feature);

/// The words of a text that blanks separate.
std::vector<std::string> Words(std::string_view text);

/// The table as Markdown, for the README.
std::string FeaturesAsMarkdown();

/// The names of all features by category, for the command line's help.
std::string FeaturesAsHelp();

} // namespace nq::camera
