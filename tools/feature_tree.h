// SPDX-License-Identifier: Apache-2.0
// The features of a port by name, as its description tells them. What is behind is a library of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace nq::tool
{

enum class FeatureType
{
    Integer,
    Float,
    Boolean,
    Enumeration,
    String,
    Command,
    Register,
};

/// How a whole number is shown.
enum class NumberForm
{
    Decimal,
    Hex,
    Ipv4,
    Mac,
};

/// A number of the type of the feature, a boolean, or the text of an enumeration, a string or a register (its bytes).
/// monostate for a command.
using FeatureValue = std::variant<std::monostate, int64_t, double, bool, std::string>;

struct FeatureEntry
{
    std::string name;
    int64_t value = 0;
    bool available = true;
};

/// What a feature is at this moment, but for its value.
struct Feature
{
    std::string name;
    std::string displayName;
    std::string description;
    std::string category; ///< names of the categories from the outermost one on, with "/" between them
    std::string unit;
    std::string visibility; ///< "Beginner", "Expert", "Guru" or "Invisible"
    FeatureType type = FeatureType::Integer;
    NumberForm form = NumberForm::Decimal;
    bool available = true;
    bool locked = false;
    bool readable = true;
    bool writable = true;
    /// Of a number, where the description tells. Integers are exact in `FeatureValue`.
    FeatureValue min;
    FeatureValue max;
    FeatureValue step;
    std::optional<uint64_t> length; ///< bytes of a string or register at most
    std::vector<FeatureEntry> entries;
    std::vector<std::string> selectors; ///< features that select one of its values
    std::vector<std::string> selected;  ///< features of which it selects one value
};

/// What the engine cannot do, in its words.
class FeatureError : public std::runtime_error
{
  public:
    using std::runtime_error::runtime_error;
};

/// The port that the features lie behind. False is a failure, which the caller of the engine knows more about.
struct FeaturePort
{
    std::function<bool(uint64_t address, void* data, size_t size)> read;
    std::function<bool(uint64_t address, const void* data, size_t size)> write;
};

/// Used from one thread. What fails throws FeatureError.
class FeatureTree
{
  public:
    FeatureTree() = default;
    virtual ~FeatureTree() = default;
    FeatureTree(const FeatureTree&) = delete;
    FeatureTree& operator=(const FeatureTree&) = delete;

    /// All features that stand in a category, in the order of the description.
    virtual const std::vector<std::string>& Names() const = 0;

    /// Whether there is a feature of this name, in a category or not.
    virtual bool Has(const std::string& name) const = 0;

    virtual Feature Look(const std::string& name) = 0;
    virtual FeatureValue Value(const std::string& name) = 0;

    /// The value has the type that Value() gives.
    virtual void Write(const std::string& name, const FeatureValue& value) = 0;
    virtual void Execute(const std::string& name) = 0;

    /// The name of the event with that id, as the selector of events has it; nothing when no feature is about it.
    virtual std::optional<std::string> EventName(uint64_t id) = 0;
};

/// What the library of the engine exports under kFeatureEngineEntry: the features of the description `file`, which is
/// an XML text or a zip with one. The caller owns them. Throws FeatureError when it is neither.
using FeatureEngineEntry = FeatureTree* (*)(const std::string& file, const FeaturePort& port);
constexpr const char* kFeatureEngineEntry = "NqFeatureEngine";

/// The same for the XML text of a file that may be a zip.
using FeatureEngineUnzip = std::string* (*)(const std::string& file);
constexpr const char* kFeatureEngineUnzip = "NqFeatureUnzip";

} // namespace nq::tool
