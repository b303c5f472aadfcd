// The host's view of volume data and VSS's hold of writes: a write to a held volume waits for
// the release, from a thread of this process and from another process, while a volume outside
// the hold is written at once; the refusals of the host's view.
#include "sim/storage/simcodes.h"
#include "sim/storage/storagesim.h"
#include "sim/vss/vsssim.h"
#include "sim/vss/writehold.h"
#include "tests/pal/registry/registry_testing.h"
#include "tests/support/paltest.h"

#include "pal/sysinfoapi.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

class WriteHoldTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        ASSERT_HR(S_OK, storagesim::InitializeState("", ""));
        ASSERT_HR(S_OK, vsssim::WriteVolumeData(u"E:", 0, "old"));
    }
    static std::string Read(const std::u16string& volume, DWORD cb = 3)
    {
        std::string data;
        EXPECT_HR(S_OK, vsssim::ReadVolumeData(volume, 0, cb, &data));
        return data;
    }
};

TEST_F(WriteHoldTest, WriteToAHeldVolumeWaitsForTheRelease)
{
    vsssim::detail::CWriteHold hold;
    ASSERT_HR(S_OK, hold.Hold({"E:\\"}));
    std::atomic<bool> fStarted{false};
    std::atomic<ULONGLONG> ullWritten{0};
    std::thread writer([&] {
        fStarted = true;
        EXPECT_HR(S_OK, vsssim::WriteVolumeData(u"e:\\", 0, "new"));
        ullWritten = GetTickCount64();
    });
    // Another process's write through orvsim waits on the same lock.
    orvtest::registry::ChildProcess other({orvtest::registry::OrvsimPath(), "--root",
                                           Root().string(), "storage", "write", "--drive",
                                           "E:", "--offset", "3", "!"},
                                          {});
    ASSERT_TRUE(orvtest::WaitUntil([&] { return fStarted.load(); }));
    // F: is not held: its write goes through while E:'s waits.
    EXPECT_HR(S_OK, vsssim::WriteVolumeData(u"F:", 0, "fff"));
    EXPECT_EQ("fff", Read(u"F:"));
    EXPECT_EQ("old", Read(u"E:"));
    EXPECT_EQ(0u, ullWritten.load());

    hold.Release();
    writer.join();
    orvtest::registry::ProcessResult result = other.Wait();
    EXPECT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("new!", Read(u"E:", 4));
    const vsssim::SetMeasures measures = vsssim::LastSetMeasures();
    EXPECT_LE(measures.ullHeldTick, measures.ullReleasedTick);
    EXPECT_GE(ullWritten.load(), measures.ullReleasedTick);
}

TEST_F(WriteHoldTest, RefusalsOfTheHostView)
{
    struct Case
    {
        const char16_t* volume;
        DWORD dwOffset;
        HRESULT hrWrite;
    } cases[] = {
        {u"K:", 0, TESSERA_E_DRIVE_NOT_FOUND}, // another vendor's disk
        {u"Q:", 0, TESSERA_E_DRIVE_NOT_FOUND}, // no disk
        {u"J:", 0, HRESULT_FROM_WIN32(ERROR_WRITE_PROTECT)},
        {u"E:", storagesim::kImageBytes - 1, E_INVALIDARG},
        {u"C:\\mnt\\logs", 0, S_OK}, // a mount point of G:'s disk
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(pal::Utf16ToUtf8(c.volume));
        EXPECT_HR(c.hrWrite, vsssim::WriteVolumeData(c.volume, c.dwOffset, "ab"));
    }
    EXPECT_EQ("ab", Read(u"G:", 2));
    std::string data;
    EXPECT_HR(TESSERA_E_DRIVE_NOT_FOUND, vsssim::ReadVolumeData(u"K:", 0, 1, &data));
    EXPECT_HR(E_INVALIDARG, vsssim::ReadVolumeData(u"E:", 0, 1, nullptr));
}

} // namespace
