// SPDX-License-Identifier: Apache-2.0
// Every lock of src/ stands in docs/threading.md with what it guards, as `name` in `file`.
#include "support/source_text.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>

using nq::test::All;
using nq::test::Names;
using nq::test::Sources;
using nq::test::StatementsOf;
using nq::test::TextOf;
using nq::test::TextOfFile;
using nq::test::Without;

namespace fs = std::filesystem;

namespace
{

/// The classes that are annotated as something to lock.
Names LockClassesIn(const std::string& text)
{
    return text.find("NQ_CAPABILITY") == std::string::npos ? Names()
                                                           : All(text, R"(\bNQ_CAPABILITY\("[^"]*"\)\s*(\w+))");
}

/// The names of the objects that `text` defines with a type that can be locked: one of `classes`, or anything called a
/// mutex, a semaphore or a spinning flag. References only name what is defined elsewhere, unless with new.
Names LocksIn(const std::string& text, const Names& classes)
{
    std::string types = R"(\w*[mM]utex(?!attr)\w*|\w*(?:rwlock|spinlock)_t|\w*semaphore|atomic_flag|sem_t)";
    for (const std::string& one : classes)
    {
        types += "|" + one;
    }
    // Regular expressions are slow: a plain search first.
    Names words = classes;
    words.insert({"utex", "lock_t", "semaphore", "atomic_flag", "sem_t"});
    const std::regex other(R"(\bextern\b|\bstd::\w*lock(?:_guard)?<)");
    const std::string definition = R"(\b(?:)" + types + R"()(?:<[^;(){}]*>)*(?:\s*>)*)";
    Names names;
    for (const nq::test::Statement& one : StatementsOf(text))
    {
        const std::string& statement = one.code;
        const auto holds = [&statement](const std::string& word) { return statement.find(word) != std::string::npos; };
        if (std::any_of(words.begin(), words.end(), holds) && !std::regex_search(statement, other))
        {
            names.merge(All(statement, definition + R"(\s+(\w+)\s*(?:\[\w*\])?\s*(?:[;{]|=[^=]))"));
            names.merge(All(statement, definition + R"(\s*&\s*(\w+)\s*=\s*\*\s*new\b)"));
        }
    }
    return names;
}

/// "`name` in `file`" for each lock of src/.
Names LocksOfTheLibrary()
{
    Names classes;
    for (const fs::path& file : Sources())
    {
        classes.merge(LockClassesIn(TextOf(file)));
    }
    Names locks;
    for (const fs::path& file : Sources())
    {
        for (const std::string& name : LocksIn(TextOf(file), classes))
        {
            locks.insert("`" + name + "` in `" + file.filename().string() + "`");
        }
    }
    return locks;
}

Names DocumentedLocks()
{
    return All(TextOfFile("docs/threading.md"), R"((`\w+` in `[\w.]+`))");
}

TEST(Locks, EveryLockOfTheLibraryIsDocumented)
{
    const Names locks = LocksOfTheLibrary();
    EXPECT_GT(locks.size(), 20U);
    EXPECT_THAT(Without(locks, DocumentedLocks()), testing::IsEmpty()) << "add them to docs/threading.md";
}

TEST(Locks, EveryDocumentedLockExists)
{
    EXPECT_THAT(Without(DocumentedLocks(), LocksOfTheLibrary()), testing::IsEmpty());
}

TEST(Locks, AreFoundWhateverTheirType)
{
    const std::string code = R"(
        std::mutex a;
        mutable std::recursive_mutex b;
        static std::shared_mutex c{};
        pthread_mutex_t d = PTHREAD_MUTEX_INITIALIZER;
        pthread_rwlock_t e;
        std::binary_semaphore f{1};
        std::atomic_flag g = ATOMIC_FLAG_INIT;
        GigERDMA::NQGenTLMutex h; ///< with words
        NQMutexOf<std::timed_mutex> i;
        NQMutex& j = *new NQMutex;
        Gate k{Held::Long};
        std::mutex l[4];
        std::unique_ptr<std::mutex> m;
        NQMutex
            n;)";
    EXPECT_THAT(LocksIn(code, {"Gate"}),
                testing::ElementsAre("a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l", "m", "n"));
    EXPECT_THAT(LockClassesIn("class NQ_CAPABILITY(\"mutex\") Gate\n{"), testing::ElementsAre("Gate"));
}

TEST(Locks, WhatOnlyTakesOrNamesOneIsNone)
{
    const std::string code = R"(
        const NQLock lock(m_mutex);
        std::lock_guard<std::mutex> guard(m_mutex);
        std::unique_lock<NQMutex> m_held;
        explicit Lock(NQMutex& mutex);
        NQMutex& m_mutex;
        extern NQMutex elsewhere;
        friend class NQGenTLMutex;
        using NQMutex = NQMutexOf<std::mutex>;
        // std::mutex in words;
        NQGenTLMutex& operator=(const NQGenTLMutex&) = delete;
        std::chrono::steady_clock::time_point now;)";
    EXPECT_THAT(LocksIn(code, {"NQGenTLMutex"}), testing::IsEmpty());
}

} // namespace
