// SPDX-License-Identifier: Apache-2.0
// On a system where a fork tears pinned pages: which memory a device may write to, which pages a child does not get,
// and the releases of such systems.
#include "rdma/pinned_pages.h"

#include "rdma/GenDCBuffer.h"
#include "support/data_stream_fixture.h"
#include "support/forked.h"
#include "support/kernel_release.h"
#include "support/page_flags.h"

#include <algorithm>
#include <memory>
#include <ostream>
#include <sys/mman.h>

const char* const nq::test::kKernelRelease = "5.10.0-28-amd64";

namespace
{

using nq::test::GenDCFrame;
using nq::test::PageFlags;

constexpr std::size_t kPage = 4096;

struct System
{
    const char* release;
    bool tearsPages;
};

std::ostream& operator<<(std::ostream& out, const System& system)
{
    return out << system.release;
}

using PinnedPagesOf = testing::TestWithParam<System>;

TEST_P(PinnedPagesOf, AreTornByAForkBefore512)
{
    EXPECT_EQ(ForkTearsPinnedPages(GetParam().release), GetParam().tearsPages);
}

INSTANTIATE_TEST_SUITE_P(Release, PinnedPagesOf,
                         testing::Values(System{"2.6.32", true}, System{"4.19.0-27-amd64", true},
                                         System{"5.4.0-150-generic", true}, System{"5.11.22", true},
                                         System{"5.12.0", false}, System{"5.12-rc3", false}, System{"5.15.0", false},
                                         System{"6.1.0-9-amd64", false}, System{"10.2", false}, System{"5", true}));

TEST(PinnedPages, OfABlockAreKeptFromTheChild)
{
    for (const std::size_t size : {std::size_t{0}, std::size_t{1000}, std::size_t{8} << 20})
    {
        const GenDCBuffer buffer(size);
        EXPECT_EQ(PageFlags(buffer.GetBuffer()).count("dc"), 1U) << size;
    }
}

TEST(PinnedPages, OfABlockAreNotTheChildsToGiveBack)
{
    for (const std::size_t size : {std::size_t{0}, std::size_t{8} << 20})
    {
        auto buffer = std::make_unique<GenDCBuffer>(size);
        const nq::test::Forked child([&] {
            void* const there = mmap(buffer->GetBuffer(), kPage, PROT_READ | PROT_WRITE,
                                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
            ASSERT_EQ(there, buffer->GetBuffer()) << "a place that is free, as for any memory of the child's";
            buffer.reset();
            EXPECT_EQ(msync(there, kPage, MS_ASYNC), 0) << "the child's memory is gone";
        });
    }
}

/// Pages of a mapping of four.
class MappedPages
{
  public:
    MappedPages()
        : m_start(static_cast<unsigned char*>(
              mmap(nullptr, 4 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
    {
    }
    ~MappedPages() { munmap(m_start, 4 * kPage); }
    MappedPages(const MappedPages&) = delete;
    MappedPages& operator=(const MappedPages&) = delete;

    unsigned char* At(std::size_t offset) const { return m_start + offset; }
    bool IsKept(std::size_t page) const { return PageFlags(At(page * kPage)).count("dc") != 0; }

  private:
    unsigned char* m_start;
};

TEST(PinnedPages, AreKeptFromTheChildForAsLongAsADeviceMayWriteThere)
{
    const MappedPages pages;
    {
        const PagesKeptFromForks kept(pages.At(kPage), kPage + 1, 2 * kPage);
        EXPECT_TRUE(kept.AreFit());
        EXPECT_FALSE(pages.IsKept(0));
        EXPECT_TRUE(pages.IsKept(1));
        EXPECT_TRUE(pages.IsKept(2));
        EXPECT_FALSE(pages.IsKept(3));
    }
    EXPECT_FALSE(pages.IsKept(1));
    EXPECT_FALSE(pages.IsKept(2));
}

TEST(PinnedPages, ThatAreNotOfThisMemoryAloneAreLeftAsTheyAre)
{
    const MappedPages pages;
    EXPECT_FALSE(PagesKeptFromForks(pages.At(1), kPage, 2 * kPage).AreFit()) << "begins inside a page";
    EXPECT_FALSE(PagesKeptFromForks(pages.At(0), kPage + 1, 2 * kPage - 1).AreFit()) << "another's byte at the end";
    EXPECT_FALSE(PagesKeptFromForks(pages.At(0), 64, 64).AreFit());
    EXPECT_FALSE(pages.IsKept(0));
    EXPECT_TRUE(PagesKeptFromForks(pages.At(0), kPage, kPage).AreFit());
}

class OldSystem : public nq::test::DataStreamFixture
{
  protected:
    OldSystem() : DataStreamFixture(kStandardAnswers) {}

    /// Takes a frame into `size` bytes there, and tells how many frames were copied.
    std::uint64_t CopiesInto(unsigned char* memory, unsigned long size)
    {
        buffers.emplace_back();
        EXPECT_EQ(stream->AnnounceBuffer(memory, size, nullptr, &buffers[0]), 0);
        Run(0);
        EXPECT_EQ(Receive(1), buffers[0]);
        const auto frame = GenDCFrame(1, 16, 4);
        EXPECT_TRUE(std::equal(frame.begin() + 176, frame.end(), memory));
        return Read64(0x80168);
    }
};

TEST_F(OldSystem, CopiesIntoMemoryThatSharesItsPages)
{
    const MappedPages pages;
    EXPECT_EQ(CopiesInto(pages.At(64), 3 * kPage), 1U);
    EXPECT_FALSE(pages.IsKept(0));
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

TEST_F(OldSystem, ReceivesInMemoryThatHasItsPagesForItself)
{
    const MappedPages pages;
    EXPECT_EQ(CopiesInto(pages.At(kPage), kPage), 0U);
    EXPECT_TRUE(pages.IsKept(1));
    EXPECT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_FALSE(pages.IsKept(1));
}

} // namespace
