// SPDX-License-Identifier: Apache-2.0
// The features of a description by the engine of aravis.
#pragma once

#include "feature_tree.h"

#include <arv.h>
#include <map>
#include <memory>
#include <set>

namespace nq::tool
{

/// The node maps of the engine behind the words of the tool.
class AravisTree : public FeatureTree
{
  public:
    AravisTree(const std::string& file, FeaturePort port);

    const std::vector<std::string>& Names() const override { return m_names; }
    bool Has(const std::string& name) const override;
    Feature Look(const std::string& name) override;
    FeatureValue Value(const std::string& name) override;
    void Write(const std::string& name, const FeatureValue& value) override;
    void Execute(const std::string& name) override;
    std::optional<std::string> EventName(uint64_t id) override;

  private:
    struct Unref
    {
        void operator()(void* object) const { g_object_unref(object); }
    };

    ArvGcFeatureNode* Find(const std::string& name) const;
    ArvGcFeatureNode* Node(const std::string& name) const;
    void Walk(const std::string& category, const std::string& path, int depth);
    void NoteSelected(const std::string& name);
    void LearnEvents();
    void DescribeNumber(ArvGcFeatureNode* node, Feature& feature) const;
    void DescribeEntries(ArvGcEnumeration* node, Feature& feature) const;

    const FeaturePort m_port;
    std::unique_ptr<ArvDevice, Unref> m_device;
    std::unique_ptr<ArvGc, Unref> m_gc;
    std::vector<std::string> m_names;
    std::set<std::string> m_walked;                  ///< categories: one may stand in several, and in itself
    std::map<std::string, std::string> m_categories; ///< of each feature, by its name
    std::map<std::string, std::vector<std::string>> m_selectors; ///< of each feature, by its name
    std::map<std::string, std::vector<std::string>> m_selected;  ///< by each selector, by its name
    std::optional<std::map<uint64_t, std::string>> m_events;     ///< names by ids, from the first question on
};

} // namespace nq::tool
