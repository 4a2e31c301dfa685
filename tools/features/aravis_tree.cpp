// SPDX-License-Identifier: Apache-2.0
// The features of a description by the engine of aravis.
#include "aravis_tree.h"

#include "port_device.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace nq::tool
{

namespace
{

constexpr size_t kLargestRegister = 4096;

/// The error of one call, freed with the object.
class Problem
{
  public:
    Problem() = default;
    ~Problem() { g_clear_error(&m_error); }
    Problem(const Problem&) = delete;
    Problem& operator=(const Problem&) = delete;

    GError** Place() { return &m_error; }
    bool Came() const { return m_error != nullptr; }

    void Throw() const
    {
        if (m_error != nullptr)
        {
            const bool event =
                g_error_matches(m_error, arv_gc_error_quark(), ARV_GC_ERROR_NO_EVENT_IMPLEMENTATION) != FALSE;
            throw FeatureError(event ? "its value comes with events alone" : m_error->message);
        }
    }

  private:
    GError* m_error = nullptr;
};

std::string TextOr(const char* text, const char* other = "")
{
    return text == nullptr ? other : text;
}

} // namespace

/// The XML text of a file that may be a zip.
static std::string Unzipped(const std::string& file)
{
    if (!file.starts_with("PK\x03\x04"))
    {
        return file;
    }
    const std::unique_ptr<ArvZip, decltype(&arv_zip_free)> zip(arv_zip_new(file.data(), file.size()), arv_zip_free);
    const GSList* const files = zip == nullptr ? nullptr : arv_zip_get_file_list(zip.get());
    size_t size = 0;
    void* const text =
        files == nullptr
            ? nullptr
            : arv_zip_get_file(zip.get(), arv_zip_file_get_name(static_cast<ArvZipFile*>(files->data)), &size);
    if (text == nullptr)
    {
        throw FeatureError("the zip of the description is broken");
    }
    std::string unzipped(static_cast<const char*>(text), size);
    g_free(text);
    return unzipped;
}

namespace
{

std::optional<FeatureType> TypeOf(ArvGcFeatureNode* node)
{
    if (ARV_IS_GC_COMMAND(node))
    {
        return FeatureType::Command;
    }
    if (ARV_IS_GC_ENUMERATION(node))
    {
        return FeatureType::Enumeration;
    }
    if (ARV_IS_GC_BOOLEAN(node))
    {
        return FeatureType::Boolean;
    }
    if (ARV_IS_GC_FLOAT(node))
    {
        return FeatureType::Float;
    }
    if (ARV_IS_GC_INTEGER(node))
    {
        return FeatureType::Integer;
    }
    if (ARV_IS_GC_STRING(node))
    {
        return FeatureType::String;
    }
    return ARV_IS_GC_REGISTER(node) ? std::optional(FeatureType::Register) : std::nullopt;
}

const char* VisibilityText(ArvGcVisibility visibility)
{
    switch (visibility)
    {
    case ARV_GC_VISIBILITY_EXPERT:
        return "Expert";
    case ARV_GC_VISIBILITY_GURU:
        return "Guru";
    case ARV_GC_VISIBILITY_INVISIBLE:
        return "Invisible";
    default:
        return "Beginner";
    }
}

NumberForm FormOf(ArvGcRepresentation representation)
{
    switch (representation)
    {
    case ARV_GC_REPRESENTATION_HEX_NUMBER:
        return NumberForm::Hex;
    case ARV_GC_REPRESENTATION_IPV4_ADDRESS:
        return NumberForm::Ipv4;
    case ARV_GC_REPRESENTATION_MAC_ADDRESS:
        return NumberForm::Mac;
    default:
        return NumberForm::Decimal;
    }
}

/// A limit, which the engine gives as the extreme of the type where the description tells none.
FeatureValue Limit(int64_t value, const Problem& problem)
{
    const bool told = !problem.Came() && value != G_MININT64 && value != G_MAXINT64;
    return told ? FeatureValue(value) : FeatureValue();
}

FeatureValue Limit(double value, const Problem& problem)
{
    const bool told = !problem.Came() && std::isfinite(value) && std::fabs(value) < G_MAXDOUBLE;
    return told ? FeatureValue(value) : FeatureValue();
}

std::string RegisterBytes(ArvGcRegister* node, Problem& problem)
{
    const uint64_t length = arv_gc_register_get_length(node, problem.Place());
    problem.Throw();
    if (length > kLargestRegister)
    {
        throw FeatureError("the register is longer than 4096 bytes");
    }
    std::string bytes(length, '\0');
    arv_gc_register_get(node, bytes.data(), length, problem.Place());
    return bytes;
}

/// Whether what the node shows may lie behind the property.
bool LeadsOn(ArvGcPropertyNodeType type)
{
    return type == ARV_GC_PROPERTY_NODE_TYPE_P_VALUE || type == ARV_GC_PROPERTY_NODE_TYPE_P_VARIABLE ||
           type == ARV_GC_PROPERTY_NODE_TYPE_P_PORT;
}

/// The id of the event whose packet holds what the node shows, the nearest one; nothing for what lies in registers.
std::optional<uint64_t> EventOf(ArvGcNode* node)
{
    constexpr size_t kMostNodes = 256;
    size_t left = 4096; // of what stands in nodes: a camera may send a description that leads on and on
    std::vector<ArvGcNode*> nodes{node};
    for (size_t at = 0; at < nodes.size(); ++at)
    {
        for (ArvDomNode* child = arv_dom_node_get_first_child(ARV_DOM_NODE(nodes[at])); child != nullptr && left > 0;
             child = arv_dom_node_get_next_sibling(child), --left)
        {
            ArvGcPropertyNode* const property = ARV_IS_GC_PROPERTY_NODE(child) ? ARV_GC_PROPERTY_NODE(child) : nullptr;
            if (property == nullptr)
            {
                continue;
            }
            const ArvGcPropertyNodeType type = arv_gc_property_node_get_node_type(property);
            if (type == ARV_GC_PROPERTY_NODE_TYPE_EVENT_ID)
            {
                Problem problem;
                const std::string digits = TextOr(arv_gc_property_node_get_string(property, problem.Place()));
                if (!digits.empty())
                {
                    return std::strtoull(digits.c_str(), nullptr, 16);
                }
            }
            ArvGcNode* const linked =
                LeadsOn(type) && nodes.size() < kMostNodes ? arv_gc_property_node_get_linked_node(property) : nullptr;
            if (linked != nullptr && std::find(nodes.begin(), nodes.end(), linked) == nodes.end())
            {
                nodes.push_back(linked);
            }
        }
    }
    return std::nullopt;
}

} // namespace

AravisTree::AravisTree(const std::string& file, FeaturePort port)
    : m_port(std::move(port)), m_device(NewPortDevice(m_port))
{
    const std::string xml = Unzipped(file);
    m_gc.reset(arv_gc_new(m_device.get(), xml.data(), xml.size()));
    if (m_gc == nullptr)
    {
        throw FeatureError("the description is no register description");
    }
    arv_gc_set_register_cache_policy(m_gc.get(), ARV_REGISTER_CACHE_POLICY_DISABLE);
    arv_gc_set_range_check_policy(m_gc.get(), ARV_RANGE_CHECK_POLICY_ENABLE);
    arv_gc_set_access_check_policy(m_gc.get(), ARV_ACCESS_CHECK_POLICY_ENABLE);
    Walk("Root", "", 0);
    for (const std::string& name : m_names)
    {
        NoteSelected(name);
    }
}

ArvGcFeatureNode* AravisTree::Find(const std::string& name) const
{
    ArvGcNode* const node = arv_gc_get_node(m_gc.get(), name.c_str());
    return node != nullptr && ARV_IS_GC_FEATURE_NODE(node) ? ARV_GC_FEATURE_NODE(node) : nullptr;
}

ArvGcFeatureNode* AravisTree::Node(const std::string& name) const
{
    ArvGcFeatureNode* const node = Find(name);
    if (node == nullptr)
    {
        throw FeatureError("there is no feature " + name);
    }
    return node;
}

void AravisTree::Walk(const std::string& category, const std::string& path, int depth)
{
    constexpr int kDeepest = 16;
    ArvGcFeatureNode* const node = Find(category);
    if (node == nullptr || !ARV_IS_GC_CATEGORY(node) || depth > kDeepest || !m_walked.insert(category).second)
    {
        return;
    }
    const std::string outer = path.empty() ? "" : path + "/";
    for (const GSList* at = arv_gc_category_get_features(ARV_GC_CATEGORY(node)); at != nullptr; at = at->next)
    {
        const std::string name = static_cast<const char*>(at->data);
        ArvGcFeatureNode* const child = Find(name);
        if (child != nullptr && TypeOf(child) && m_categories.emplace(name, path).second)
        {
            m_names.push_back(name);
        }
        std::string inner = outer;
        inner += name;
        Walk(name, inner, depth + 1);
    }
}

void AravisTree::NoteSelected(const std::string& name)
{
    ArvGcFeatureNode* const node = Node(name);
    if (!ARV_IS_GC_SELECTOR(node))
    {
        return;
    }
    for (const GSList* at = arv_gc_selector_get_selected_features(ARV_GC_SELECTOR(node)); at != nullptr; at = at->next)
    {
        const std::string selected = TextOr(arv_gc_feature_node_get_name(ARV_GC_FEATURE_NODE(at->data)));
        m_selected[name].push_back(selected);
        m_selectors[selected].push_back(name);
    }
}

bool AravisTree::Has(const std::string& name) const
{
    ArvGcFeatureNode* const node = Find(name);
    return node != nullptr && TypeOf(node).has_value();
}

Feature AravisTree::Look(const std::string& name)
{
    ArvGcFeatureNode* const node = Node(name);
    Feature feature;
    feature.name = name;
    feature.displayName = TextOr(arv_gc_feature_node_get_display_name(node));
    const std::string tip = TextOr(arv_gc_feature_node_get_tooltip(node));
    feature.description = TextOr(arv_gc_feature_node_get_description(node), tip.c_str());
    feature.visibility = VisibilityText(arv_gc_feature_node_get_visibility(node));
    feature.type = TypeOf(node).value_or(FeatureType::Register);
    if (const auto category = m_categories.find(name); category != m_categories.end())
    {
        feature.category = category->second;
    }
    Problem available;
    feature.available = arv_gc_feature_node_is_implemented(node, available.Place()) != FALSE;
    available.Throw();
    feature.available = feature.available && arv_gc_feature_node_is_available(node, available.Place()) != FALSE;
    available.Throw();
    Problem locked;
    feature.locked = arv_gc_feature_node_is_locked(node, locked.Place()) != FALSE;
    locked.Throw();
    const ArvGcAccessMode mode = arv_gc_feature_node_get_actual_access_mode(node);
    feature.readable = mode != ARV_GC_ACCESS_MODE_WO && feature.type != FeatureType::Command;
    feature.writable = mode != ARV_GC_ACCESS_MODE_RO;
    feature.selectors = m_selectors[name];
    feature.selected = m_selected[name];
    DescribeNumber(node, feature);
    if (ARV_IS_GC_ENUMERATION(node))
    {
        DescribeEntries(ARV_GC_ENUMERATION(node), feature);
    }
    return feature;
}

void AravisTree::DescribeNumber(ArvGcFeatureNode* node, Feature& feature) const
{
    Problem problems[3];
    if (feature.type == FeatureType::Integer)
    {
        auto* const number = ARV_GC_INTEGER(node);
        feature.min = Limit(arv_gc_integer_get_min(number, problems[0].Place()), problems[0]);
        feature.max = Limit(arv_gc_integer_get_max(number, problems[1].Place()), problems[1]);
        feature.step = Limit(arv_gc_integer_get_inc(number, problems[2].Place()), problems[2]);
        feature.unit = TextOr(arv_gc_integer_get_unit(number));
        feature.form = FormOf(arv_gc_integer_get_representation(number));
    }
    else if (feature.type == FeatureType::Float)
    {
        auto* const number = ARV_GC_FLOAT(node);
        feature.min = Limit(arv_gc_float_get_min(number, problems[0].Place()), problems[0]);
        feature.max = Limit(arv_gc_float_get_max(number, problems[1].Place()), problems[1]);
        const double step = arv_gc_float_get_inc(number, problems[2].Place());
        feature.step = step > G_MINDOUBLE ? Limit(step, problems[2]) : FeatureValue();
        feature.unit = TextOr(arv_gc_float_get_unit(number));
    }
    else if (feature.type == FeatureType::String || feature.type == FeatureType::Register)
    {
        const int64_t length =
            feature.type == FeatureType::String
                ? arv_gc_string_get_max_length(ARV_GC_STRING(node), problems[0].Place())
                : static_cast<int64_t>(arv_gc_register_get_length(ARV_GC_REGISTER(node), problems[0].Place()));
        if (!problems[0].Came() && length > 0)
        {
            feature.length = static_cast<uint64_t>(length);
        }
    }
}

void AravisTree::DescribeEntries(ArvGcEnumeration* node, Feature& feature) const
{
    // In the order of the description, which the engine's own list has not.
    for (ArvDomNode* at = arv_dom_node_get_first_child(ARV_DOM_NODE(node)); at != nullptr;
         at = arv_dom_node_get_next_sibling(at))
    {
        if (!ARV_IS_GC_ENUM_ENTRY(at))
        {
            continue;
        }
        auto* const entry = ARV_GC_FEATURE_NODE(at);
        Problem value;
        Problem available;
        Problem implemented;
        FeatureEntry described;
        described.name = TextOr(arv_gc_feature_node_get_name(entry));
        described.value = arv_gc_enum_entry_get_value(ARV_GC_ENUM_ENTRY(at), value.Place());
        described.available = arv_gc_feature_node_is_available(entry, available.Place()) != FALSE &&
                              arv_gc_feature_node_is_implemented(entry, implemented.Place()) != FALSE;
        feature.entries.push_back(described);
    }
}

FeatureValue AravisTree::Value(const std::string& name)
{
    ArvGcFeatureNode* const node = Node(name);
    Problem problem;
    FeatureValue value;
    switch (TypeOf(node).value_or(FeatureType::Command))
    {
    case FeatureType::Command:
        break;
    case FeatureType::Enumeration:
        value = TextOr(arv_gc_enumeration_get_string_value(ARV_GC_ENUMERATION(node), problem.Place()));
        break;
    case FeatureType::Boolean:
        value = arv_gc_boolean_get_value(ARV_GC_BOOLEAN(node), problem.Place()) != FALSE;
        break;
    case FeatureType::Float:
        value = arv_gc_float_get_value(ARV_GC_FLOAT(node), problem.Place());
        break;
    case FeatureType::Integer:
        value = int64_t{arv_gc_integer_get_value(ARV_GC_INTEGER(node), problem.Place())};
        break;
    case FeatureType::String: {
        const char* const text = arv_gc_string_get_value(ARV_GC_STRING(node), problem.Place());
        problem.Throw(); // after a failure the characters have no end
        value = TextOr(text);
        break;
    }
    case FeatureType::Register:
        value = RegisterBytes(ARV_GC_REGISTER(node), problem);
        break;
    }
    problem.Throw();
    return value;
}

void AravisTree::Write(const std::string& name, const FeatureValue& value)
{
    ArvGcFeatureNode* const node = Node(name);
    Problem problem;
    switch (TypeOf(node).value_or(FeatureType::Command))
    {
    case FeatureType::Command:
        break;
    case FeatureType::Enumeration:
        arv_gc_enumeration_set_string_value(ARV_GC_ENUMERATION(node), std::get<std::string>(value).c_str(),
                                            problem.Place());
        break;
    case FeatureType::Boolean:
        arv_gc_boolean_set_value(ARV_GC_BOOLEAN(node), std::get<bool>(value) ? TRUE : FALSE, problem.Place());
        break;
    case FeatureType::Float:
        arv_gc_float_set_value(ARV_GC_FLOAT(node), std::get<double>(value), problem.Place());
        break;
    case FeatureType::Integer:
        arv_gc_integer_set_value(ARV_GC_INTEGER(node), std::get<int64_t>(value), problem.Place());
        break;
    case FeatureType::String:
        arv_gc_string_set_value(ARV_GC_STRING(node), std::get<std::string>(value).c_str(), problem.Place());
        break;
    case FeatureType::Register: {
        const std::string& bytes = std::get<std::string>(value);
        arv_gc_register_set(ARV_GC_REGISTER(node), bytes.data(), bytes.size(), problem.Place());
        break;
    }
    }
    problem.Throw();
}

void AravisTree::Execute(const std::string& name)
{
    Problem problem;
    arv_gc_command_execute(ARV_GC_COMMAND(Node(name)), problem.Place());
    problem.Throw();
}

void AravisTree::LearnEvents()
{
    // By convention the feature with the id is called as the event, those with its data have more behind that.
    constexpr std::string_view kPrefix = "Event";
    std::map<uint64_t, std::string> shortest;
    for (const std::string& name : m_names)
    {
        if (const std::optional<uint64_t> event = EventOf(ARV_GC_NODE(Node(name))))
        {
            std::string& known = shortest.emplace(*event, name).first->second;
            known = name.size() < known.size() ? name : known;
        }
    }
    m_events.emplace();
    for (const auto& [event, name] : shortest)
    {
        m_events->emplace(event, name.starts_with(kPrefix) ? name.substr(kPrefix.size()) : name);
    }
}

std::optional<std::string> AravisTree::EventName(uint64_t id)
{
    if (!m_events)
    {
        LearnEvents();
    }
    const auto found = m_events->find(id);
    return found == m_events->end() ? std::nullopt : std::optional(found->second);
}

} // namespace nq::tool

extern "C" nq::tool::FeatureTree* NqFeatureEngine(const std::string& file, const nq::tool::FeaturePort& port)
{
    return new nq::tool::AravisTree(file, port);
}

extern "C" std::string* NqFeatureUnzip(const std::string& file)
{
    return new std::string(nq::tool::Unzipped(file));
}
