// The fault injection that every failure-path test relies on, and the fixture's reset.
#include "pal/combaseapi.h"
#include "pal/errhandlingapi.h"
#include "pal/src/base/internal.h"
#include "tests/support/paltest.h"

#include <new>
#include <thread>
#include <vector>

namespace {

using FaultsTest = orvtest::PalTest;

TEST_F(FaultsTest, EveryCallOrOnlyTheNthMatchingOneFailsAndTheArgumentIgnoresCase)
{
    pal::InjectFault("CreateEventW", ERROR_ACCESS_DENIED);
    for (int i = 0; i < 3; ++i) {
        SetLastError(0);
        EXPECT_TRUE(pal::detail::FailIfInjected("CreateEventW"));
        EXPECT_WIN32(ERROR_ACCESS_DENIED, GetLastError());
    }
    EXPECT_EQ(3u, pal::FaultHits("CreateEventW"));
    EXPECT_FALSE(pal::detail::FailIfInjected("OpenEventW"));
    pal::ClearFault("CreateEventW");
    EXPECT_FALSE(pal::detail::FailIfInjected("CreateEventW"));

    pal::InjectFault("RegOpenKeyExW", ERROR_FILE_NOT_FOUND, 3);
    std::vector<bool> failed;
    for (int i = 0; i < 5; ++i)
        failed.push_back(pal::detail::FailIfInjected("RegOpenKeyExW"));
    EXPECT_EQ((std::vector<bool>{false, false, true, false, false}), failed);
    EXPECT_EQ(5u, pal::FaultCalls("RegOpenKeyExW"));
    EXPECT_EQ(1u, pal::FaultHits("RegOpenKeyExW"));

    // Calls with another argument, or none, are not counted.
    pal::InjectFault("OpenEventW", ERROR_FILE_NOT_FOUND, 2, W("{ABC}"));
    EXPECT_FALSE(pal::detail::FailIfInjected("OpenEventW", W("{other}")));
    EXPECT_FALSE(pal::detail::FailIfInjected("OpenEventW", nullptr));
    EXPECT_FALSE(pal::detail::FailIfInjected("OpenEventW", W("{abc}")));
    EXPECT_TRUE(pal::detail::FailIfInjected("OpenEventW", W("{Abc}")));
    EXPECT_EQ(2u, pal::FaultCalls("OpenEventW"));
}

TEST_F(FaultsTest, NothrowNewFailsOnlyTheArmedAllocation)
{
    pal::FailNothrowNewAt(2);
    int* first = new (std::nothrow) int(1);
    int* second = new (std::nothrow) int(2);
    int* third = new (std::nothrow) int(3);
    EXPECT_NE(nullptr, first);
    EXPECT_EQ(nullptr, second);
    EXPECT_NE(nullptr, third);
    EXPECT_EQ(3u, pal::NothrowNewAllocations());
    delete first;
    delete third;
}

TEST_F(FaultsTest, AThreadOnlyAllocationFaultLeavesOtherThreadsAlone)
{
    pal::FailTaskAllocAt(1, true);
    pal::FailNothrowNewAt(1, true);
    void* pOther = nullptr;
    int* pOtherInt = nullptr;
    std::thread([&] {
        pOther = CoTaskMemAlloc(8);
        pOtherInt = new (std::nothrow) int(1);
    }).join();
    EXPECT_NE(nullptr, pOther);
    EXPECT_NE(nullptr, pOtherInt);
    EXPECT_EQ(0u, pal::TaskAllocations());
    EXPECT_EQ(0u, pal::NothrowNewAllocations());
    EXPECT_EQ(nullptr, CoTaskMemAlloc(8));
    EXPECT_EQ(nullptr, new (std::nothrow) int(2));
    CoTaskMemFree(pOther);
    delete pOtherInt;
}

TEST_F(FaultsTest, ResetClearsEveryControlAndTheRootIsTheTestsOwn)
{
    pal::InjectFault("CreateThread", ERROR_NOT_ENOUGH_MEMORY);
    pal::FailTaskAllocAt(1);
    pal::SetClockScale(1000);
    pal::ResetForTest();
    EXPECT_FALSE(pal::detail::FailIfInjected("CreateThread"));
    EXPECT_FALSE(pal::detail::TaskAllocShouldFail());
    EXPECT_EQ(1u, pal::GetClockScale());
    EXPECT_EQ(Root().string(), pal::MachineRoot());
}

} // namespace
