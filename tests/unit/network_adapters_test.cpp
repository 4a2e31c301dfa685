// SPDX-License-Identifier: Apache-2.0
// Listing the host's adapters, asking for one, and addresses between text and number.
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_util.h"
#include "support/network.h"
#include "support/trace_capture.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <set>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace nq::test;

namespace
{

/// The request that the kernel refuses from now on, 0 for none.
std::atomic<unsigned long> g_RefusedRequest = 0;

std::set<int> OpenDescriptors()
{
    std::set<int> descriptors;
    DIR* const folder = opendir("/proc/self/fd");
    while (const dirent* const entry = readdir(folder))
    {
        descriptors.insert(std::atoi(entry->d_name));
    }
    descriptors.erase(dirfd(folder));
    closedir(folder);
    return descriptors;
}

std::vector<_NQ_GEV_INTERFACE_INFO> Discover()
{
    std::vector<_NQ_GEV_INTERFACE_INFO> found;
    EXPECT_TRUE(NQGevUtil::DiscoverInterfaces(0, found));
    return found;
}

void AddAdapter(const std::string& name, const std::string& mac, const std::string& address)
{
    Shell("ip link add " + name + " address " + mac + " type veth peer name p" + name);
    Shell("ip addr add " + address + " brd + dev " + name + " && ip link set " + name + " up");
}

struct Outputs
{
    std::string ip = "ip before";
    std::string mask = "mask before";
    std::string gateway = "gateway before";
};

/// No descriptor can be opened as long as it lives.
class NoMoreDescriptors
{
  public:
    NoMoreDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const int next = dup(0);
        close(next);
        const rlimit none{static_cast<rlim_t>(next), m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

  private:
    rlimit m_before{};
};

} // namespace

/// Takes the place of the C library's function, so that single requests can be refused.
extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request == g_RefusedRequest)
    {
        errno = EPERM;
        return -1;
    }
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

TEST(NetworkAdapters, AHostWithOnlyTheLoopbackAddressYieldsAnEmptyVectorAndTrue)
{
    EXPECT_TRUE(Discover().empty());
}

TEST(NetworkAdapters, AnAdapterIsDescribedInEveryField)
{
    AddAdapter("cam0", "02:0a:0b:0C:0d:fe", "10.9.0.1/24");
    const std::vector<_NQ_GEV_INTERFACE_INFO> found = Discover();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].id, "Linux Socket:02-0a-0b-0c-0d-fe");
    EXPECT_EQ(found[0].displayName, "cam0:10.9.0.1");
    EXPECT_EQ(found[0].tlType, "GEV");
    EXPECT_EQ(found[0].spareWord, 0u);
    EXPECT_EQ(found[0].adapterName, "cam0");
    EXPECT_EQ(found[0].spareText, "");
    EXPECT_EQ(found[0].macAddress, "02-0a-0b-0c-0d-fe");
    EXPECT_EQ(found[0].ipAddress, "10.9.0.1");
    EXPECT_EQ(found[0].subnetMask, "255.255.255.0");
    EXPECT_EQ(found[0].gateway, "");
}

TEST(NetworkAdapters, ASecondAddressOnOneAdapterGivesASecondRecordWithTheSameId)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    Shell("ip addr add 10.10.0.1/16 dev cam0 label cam0:1");
    const std::vector<_NQ_GEV_INTERFACE_INFO> found = Discover();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].id, found[1].id);
    EXPECT_EQ(found[0].displayName, "cam0:10.9.0.1");
    EXPECT_EQ(found[1].displayName, "cam0:1:10.10.0.1");
    EXPECT_EQ(found[1].adapterName, "cam0:1");
    EXPECT_EQ(found[1].ipAddress, "10.10.0.1");
    EXPECT_EQ(found[1].subnetMask, "255.255.0.0");
}

// Deliberate(OneLoopbackIsLeftOut)
TEST(NetworkAdapters, AnEntryWithTheAddress127002IsListed)
{
    Shell("ip addr add 127.0.0.2/8 dev lo");
    const std::vector<_NQ_GEV_INTERFACE_INFO> found = Discover();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].ipAddress, "127.0.0.2");
    EXPECT_EQ(found[0].id, "Linux Socket:00-00-00-00-00-00");
}

TEST(NetworkAdapters, AnAdapterThatIsDownCountsToo)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    Shell("ip link set cam0 down");
    EXPECT_EQ(Discover().size(), 1u);
}

TEST(NetworkAdapters, AnAdapterWithoutAnAddressIsNotSeen)
{
    Shell("ip link add cam0 type veth peer name pcam0 && ip link set cam0 up");
    EXPECT_TRUE(Discover().empty());
}

TEST(NetworkAdapters, AScanAppendsAndNeverClears)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    std::vector<_NQ_GEV_INTERFACE_INFO> found(1);
    found[0].id = "before";
    EXPECT_TRUE(NQGevUtil::DiscoverInterfaces(77, found));
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].id, "before");
}

// Deliberate(TwentyFiveAddresses)
TEST(NetworkAdapters, AScanSeesTwentyFiveAddressesAndNoMore)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    for (int i = 2; i <= 40; ++i)
    {
        Shell("ip addr add 10.9.0." + std::to_string(i) + "/24 dev cam0");
    }
    EXPECT_EQ(Discover().size(), 24u) << "one of the 25 is 127.0.0.1";
    Outputs last;
    EXPECT_TRUE(NQGevUtil::GetAdapterInfo("cam0", last.ip, last.mask, last.gateway));
    EXPECT_EQ(last.ip, "10.9.0.24");
}

TEST(NetworkAdapters, WithoutASocketTheScanIsFalseAndSaysSo)
{
    const TraceCapture trace;
    std::vector<_NQ_GEV_INTERFACE_INFO> found;
    {
        const NoMoreDescriptors none;
        EXPECT_FALSE(NQGevUtil::DiscoverInterfaces(0, found));
    }
    EXPECT_TRUE(found.empty());
    EXPECT_TRUE(trace.Has(2, "DiscoverInterfaces socket creation failed!"));
}

TEST(NetworkAdapters, WithoutASocketTheQueryIsFalseAndSaysSo)
{
    const TraceCapture trace;
    Outputs outputs;
    {
        const NoMoreDescriptors none;
        EXPECT_FALSE(NQGevUtil::GetAdapterInfo("lo", outputs.ip, outputs.mask, outputs.gateway));
    }
    EXPECT_EQ(outputs.ip, "ip before");
    EXPECT_TRUE(trace.Has(2, "GetAdapterInfo socket creation failed!"));
}

// Deliberate(UnreadableTableIsEmpty)
TEST(NetworkAdapters, DeliberateAnUnreadableTableIsTrueForTheScanAndFalseForTheQuery)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    g_RefusedRequest = SIOCGIFCONF;
    testing::internal::CaptureStderr();
    std::vector<_NQ_GEV_INTERFACE_INFO> found;
    EXPECT_TRUE(NQGevUtil::DiscoverInterfaces(0, found));
    EXPECT_TRUE(found.empty());
    Outputs outputs;
    EXPECT_FALSE(NQGevUtil::GetAdapterInfo("cam0", outputs.ip, outputs.mask, outputs.gateway));
    EXPECT_EQ(outputs.ip, "ip before");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ioctl(SIOCGIFCONF): Operation not permitted\nioctl(SIOCGIFCONF): Operation not permitted\n");
}

// Deliberate(UnreadableTableKeepsItsSocket)
TEST(NetworkAdapters, DeliberateTheSocketStaysOpenAfterAnUnreadableTable)
{
    g_RefusedRequest = SIOCGIFCONF;
    testing::internal::CaptureStderr();
    const std::set<int> before = OpenDescriptors();
    std::vector<_NQ_GEV_INTERFACE_INFO> found;
    NQGevUtil::DiscoverInterfaces(0, found);
    EXPECT_EQ(OpenDescriptors().size(), before.size() + 1);
    Outputs outputs;
    NQGevUtil::GetAdapterInfo("lo", outputs.ip, outputs.mask, outputs.gateway);
    EXPECT_EQ(OpenDescriptors().size(), before.size() + 2);
    for (const int descriptor : OpenDescriptors())
    {
        if (before.count(descriptor) == 0)
        {
            EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC) << "no child inherits it";
        }
    }
    testing::internal::GetCapturedStderr();
}

TEST(NetworkAdapters, AScanLeavesNoDescriptorBehind)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    const std::set<int> before = OpenDescriptors();
    Discover();
    Outputs outputs;
    NQGevUtil::GetAdapterInfo("cam0", outputs.ip, outputs.mask, outputs.gateway);
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST(NetworkAdapters, AnEntryWithoutANetmaskIsLeftOut)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    g_RefusedRequest = SIOCGIFNETMASK;
    EXPECT_TRUE(Discover().empty());
}

TEST(NetworkAdapters, AnEntryWithoutAHardwareAddressIsLeftOut)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    g_RefusedRequest = SIOCGIFHWADDR;
    EXPECT_TRUE(Discover().empty());
}

TEST(NetworkAdapters, TheQueryGivesAddressAndMaskAndLeavesTheGateway)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/20");
    Outputs outputs;
    EXPECT_TRUE(NQGevUtil::GetAdapterInfo("cam0", outputs.ip, outputs.mask, outputs.gateway));
    EXPECT_EQ(outputs.ip, "10.9.0.1");
    EXPECT_EQ(outputs.mask, "255.255.240.0");
    EXPECT_EQ(outputs.gateway, "gateway before");
}

TEST(NetworkAdapters, TheQueryOfAnUnknownNameIsTrueAndLeavesAllThreeOutputs)
{
    Outputs outputs;
    EXPECT_TRUE(NQGevUtil::GetAdapterInfo("nothing", outputs.ip, outputs.mask, outputs.gateway));
    EXPECT_EQ(outputs.ip, "ip before");
    EXPECT_EQ(outputs.mask, "mask before");
    EXPECT_EQ(outputs.gateway, "gateway before");
}

TEST(NetworkAdapters, TheNameOfTheQueryMatchesExactly)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    for (const char* name : {"cam", "cam00", "CAM0", ""})
    {
        Outputs outputs;
        EXPECT_TRUE(NQGevUtil::GetAdapterInfo(name, outputs.ip, outputs.mask, outputs.gateway));
        EXPECT_EQ(outputs.ip, "ip before") << name;
    }
}

// Deliberate(LastEntryStands)
TEST(NetworkAdapters, OfSeveralEntriesOfOneNameTheLastOneStands)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    Shell("ip addr add 10.10.0.1/24 dev cam0");
    Outputs outputs;
    EXPECT_TRUE(NQGevUtil::GetAdapterInfo("cam0", outputs.ip, outputs.mask, outputs.gateway));
    EXPECT_EQ(outputs.ip, "10.10.0.1");
}

TEST(NetworkAdapters, WithoutANetmaskTheQueryWritesTheAddressOnly)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    g_RefusedRequest = SIOCGIFNETMASK;
    Outputs outputs;
    EXPECT_TRUE(NQGevUtil::GetAdapterInfo("cam0", outputs.ip, outputs.mask, outputs.gateway));
    EXPECT_EQ(outputs.ip, "10.9.0.1");
    EXPECT_EQ(outputs.mask, "mask before");
}

TEST(NetworkAdapters, TheQuerySeesAChangeOfAddressAtOnce)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    Shell("ip addr del 10.9.0.1/24 dev cam0 && ip addr add 10.9.0.77/25 dev cam0");
    Outputs outputs;
    EXPECT_TRUE(NQGevUtil::GetAdapterInfo("cam0", outputs.ip, outputs.mask, outputs.gateway));
    EXPECT_EQ(outputs.ip, "10.9.0.77");
    EXPECT_EQ(outputs.mask, "255.255.255.128");
}

TEST(AddressTexts, MacAddressToUint64PutsTheFirstPairInTheHighestBits)
{
    EXPECT_EQ(NQGevUtil::MacAddressToUint64("02-0a-0b-01-02-03"), 0x020A0B010203u);
    EXPECT_EQ(NQGevUtil::MacAddressToUint64("2-a-b-1-2-3"), 0x020A0B010203u);
    EXPECT_EQ(NQGevUtil::MacAddressToUint64("FF-FF-FF-FF-FF-FF"), 0xFFFFFFFFFFFFu);
}

TEST(AddressTexts, MacAddressToUint64OfTheFormWithColonsIsZero)
{
    EXPECT_EQ(NQGevUtil::MacAddressToUint64("02:0a:0b:01:02:03"), 0u);
}

TEST(AddressTexts, MacAddressToUint64OfATextThatIsNoMacAddressIsZero)
{
    for (const char* text : {"", "02", "02-0a-0b-01-02", "xx-0a-0b-01-02-03", "02-0a-0b-01-02-"})
    {
        EXPECT_EQ(NQGevUtil::MacAddressToUint64(text), 0u) << text;
    }
}

TEST(AddressTexts, MacAddressToStringWritesSixLowerCasePairs)
{
    EXPECT_EQ(NQGevUtil::MacAddressToString(0x02, 0xAB, 0, 9, 0xFF, 0x10), "02-ab-00-09-ff-10");
}

TEST(AddressTexts, IPAddressToUint32PutsTheFirstOctetInTheHighestByte)
{
    EXPECT_EQ(NQGevUtil::IPAddressToUint32("192.168.1.10"), 0xC0A8010Au);
}

TEST(AddressTexts, IPAddressToUint32OfATextThatIsNoAddressIsZero)
{
    for (const char* text : {"", "10.0.0", "10.0.0.256", "camera", "10.0.0.1 "})
    {
        EXPECT_EQ(NQGevUtil::IPAddressToUint32(text), 0u) << text;
    }
}

// Deliberate(AddressTextIsNotSwapped)
TEST(AddressTexts, DeliberateIPAddressToStringDoesNotSwap)
{
    EXPECT_EQ(NQGevUtil::IPAddressToString(0x0A01A8C0), "192.168.1.10");
    EXPECT_EQ(NQGevUtil::IPAddressToString(NQGevUtil::IPAddressToUint32("1.2.3.4")), "4.3.2.1");
}
