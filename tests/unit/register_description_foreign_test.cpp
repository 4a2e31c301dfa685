// SPDX-License-Identifier: Apache-2.0
// The four register descriptions as foreign readers take them: libxml2 and the GenApi engine of aravis, where
// installed.
#include "support/register_description.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

using namespace nq::test;

namespace
{

/// A shared library that may be absent.
class Library
{
  public:
    explicit Library(const char* file) : m_handle(dlopen(file, RTLD_NOW | RTLD_LOCAL)) {}
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    // Never unloaded: GObject does not survive it.
    explicit operator bool() const { return m_handle != nullptr; }

    template <typename Function>
    Function* Find(const char* name) const
    {
        return reinterpret_cast<Function*>(dlsym(m_handle, name));
    }

  private:
    void* m_handle;
};

} // namespace

TEST(RegisterDescriptionForeign, Libxml2ReadsAllFourTextsWithoutAComplaint)
{
    const Library xml("libxml2.so.2");
    if (!xml)
    {
        GTEST_SKIP() << "libxml2 is not installed";
    }
    auto* const read = xml.Find<void*(const char*, int, const char*, const char*, int)>("xmlReadMemory");
    auto* const release = xml.Find<void(void*)>("xmlFreeDoc");
    ASSERT_TRUE(read != nullptr && release != nullptr);
    for (const Map& map : Maps())
    {
        const std::string text = map.create();
        constexpr int kPedantic = 1 << 7;
        void* const document = read(text.data(), static_cast<int>(text.size()), nullptr, nullptr, kPedantic);
        EXPECT_NE(document, nullptr) << map.name;
        if (document != nullptr)
        {
            release(document);
        }
    }
}

TEST(RegisterDescriptionForeign, AravisFindsEveryNodeOfEveryText)
{
    const Library aravis("libaravis-0.8.so.0");
    if (!aravis)
    {
        GTEST_SKIP() << "aravis is not installed";
    }
    auto* const create = aravis.Find<void*(void*, const void*, std::size_t)>("arv_gc_new");
    auto* const find = aravis.Find<void*(void*, const char*)>("arv_gc_get_node");
    auto* const release = aravis.Find<void(void*)>("g_object_unref");
    ASSERT_TRUE(create != nullptr && find != nullptr && release != nullptr);
    ForEachMap([&](const Map& map, const XmlNode& root) {
        const std::string text = map.create();
        void* const engine = create(nullptr, text.data(), text.size());
        ASSERT_NE(engine, nullptr);
        for (const Placed& placed : NamedNodes(root))
        {
            const std::string name = placed.node->Attribute("Name");
            EXPECT_NE(find(engine, name.c_str()), nullptr) << name;
        }
        EXPECT_EQ(find(engine, "NoSuchNode"), nullptr);
        release(engine);
    });
}
