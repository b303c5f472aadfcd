// The registry shared by processes: a writer killed with SIGKILL at random moments leaves
// every completed write in place and a sound database; two processes writing under one key
// lose nothing. The child processes are this test program run again on a disabled test.
#include "tests/pal/registry/registry_testing.h"

#include <sqlite3.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>
#include <string>

namespace {

using orvtest::registry::ChildProcess;
using orvtest::registry::ReadReports;
using orvtest::registry::ScopedKey;
using Clock = std::chrono::steady_clock;

constexpr const WCHAR* kDurableKey = u"Software\\OrvTest\\Durable";
constexpr int kNames = 8;
constexpr size_t kPayloadBytes = 512;

// What write number n stores: n itself, then bytes derived from it, so that a torn or mixed
// value would show.
std::vector<BYTE> Payload(ULONGLONG n)
{
    std::vector<BYTE> data(kPayloadBytes);
    std::memcpy(data.data(), &n, sizeof(n));
    for (size_t i = sizeof(n); i < data.size(); ++i)
        data[i] = static_cast<BYTE>(n * 31 + i);
    return data;
}

std::u16string NameOf(ULONGLONG n)
{
    return u"v" + orvtest::Wide(std::to_string(n % kNames));
}

std::vector<std::string> ChildArgs(const char* test)
{
    return orvtest::registry::SelfArgs(std::string("RegistryChild.") + test);
}

// The child's environment value `name`, after pointing this process at the parent's machine.
const char* ChildEnv(const char* name)
{
    const char* root = std::getenv("ORV_REG_CHILD_ROOT");
    if (root)
        setenv("ORVSIM_ROOT", root, 1);
    return root ? std::getenv(name) : nullptr;
}

// ---- The children (disabled: they run only when started by the tests below) ----

// Writes Payload(n) to value NameOf(n) for n = $ORV_REG_CHILD_START, +1, ... until killed,
// reporting each n on descriptor 3 once its RegSetValueExW has returned.
TEST(RegistryChild, DISABLED_WriterLoop)
{
    const char* start = ChildEnv("ORV_REG_CHILD_START");
    if (!start)
        GTEST_SKIP() << "runs only as a child of SigkillLeavesEveryCompletedWrite";
    HKEY hKey = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kDurableKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                        &hKey, nullptr) != ERROR_SUCCESS)
        _exit(3);
    for (ULONGLONG n = std::strtoull(start, nullptr, 10);; ++n) {
        std::vector<BYTE> data = Payload(n);
        if (RegSetValueExW(hKey, NameOf(n).c_str(), 0, REG_BINARY, data.data(),
                           static_cast<DWORD>(data.size())) != ERROR_SUCCESS)
            _exit(4);
        std::string line = std::to_string(n) + "\n";
        if (write(3, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
            _exit(5);
    }
}

// Writes $ORV_REG_CHILD_COUNT DWORD values named $ORV_REG_CHILD_PREFIX<i> under one key.
TEST(RegistryChild, DISABLED_DistinctWriter)
{
    const char* prefix = ChildEnv("ORV_REG_CHILD_PREFIX");
    const char* count = std::getenv("ORV_REG_CHILD_COUNT");
    if (!prefix || !count)
        GTEST_SKIP() << "runs only as a child of TwoProcessesWritingUnderOneKey";
    HKEY hKey = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_LOCAL_MACHINE, u"Software\\OrvTest\\Shared", 0,
                                             nullptr, 0, KEY_ALL_ACCESS, nullptr, &hKey, nullptr));
    for (DWORD i = 0, n = static_cast<DWORD>(std::strtoul(count, nullptr, 10)); i < n; ++i) {
        std::u16string name = orvtest::Wide(prefix + std::to_string(i));
        ASSERT_EQ(ERROR_SUCCESS, RegSetValueExW(hKey, name.c_str(), 0, REG_DWORD,
                                                reinterpret_cast<const BYTE*>(&i), sizeof(i)));
    }
    RegCloseKey(hKey);
}

// ---- The tests ----

using RegistryProcessesTest = orvtest::registry::RegistryTest;

std::string IntegrityCheck(const std::filesystem::path& db)
{
    sqlite3* pDb = nullptr;
    std::string result = "cannot open";
    if (sqlite3_open_v2(db.c_str(), &pDb, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* pStmt = nullptr;
        if (sqlite3_prepare_v2(pDb, "PRAGMA integrity_check", -1, &pStmt, nullptr) == SQLITE_OK &&
            sqlite3_step(pStmt) == SQLITE_ROW)
            result = reinterpret_cast<const char*>(sqlite3_column_text(pStmt, 0));
        sqlite3_finalize(pStmt);
    }
    sqlite3_close(pDb);
    return result;
}

TEST_F(RegistryProcessesTest, SigkillLeavesEveryCompletedWriteInPlace)
{
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> killAfterMs(5, 150);

    // What each value may hold: its last reported write, or a later write that was in flight
    // when its writer died (it may or may not have committed).
    std::array<std::optional<ULONGLONG>, kNames> reported;
    std::array<std::set<ULONGLONG>, kNames> inFlight;
    ULONGLONG next = 1, totalReports = 0;

    for (int round = 0; round < 6; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ChildProcess child(ChildArgs("DISABLED_WriterLoop"),
                           {"ORV_REG_CHILD_ROOT=" + Root().string(),
                            "ORV_REG_CHILD_START=" + std::to_string(next)},
                           true);
        ASSERT_TRUE(child.Started());
        std::string pending;
        std::vector<ULONGLONG> reports;
        // Kill at a random moment once the child writes, bounded if it never does.
        ReadReports(child.ReportFd(), Clock::now() + std::chrono::seconds(10), &pending, &reports,
                    1);
        ReadReports(child.ReportFd(), Clock::now() + std::chrono::milliseconds(killAfterMs(rng)),
                    &pending, &reports);
        child.Kill();
        ReadReports(child.ReportFd(), std::nullopt, &pending, &reports);
        auto result = child.Wait();
        EXPECT_EQ(-1, result.exitCode) << "the writer stopped by itself: " << result.err;

        for (ULONGLONG n : reports) {
            reported[n % kNames] = n;
            inFlight[n % kNames].clear();
        }
        ULONGLONG last = reports.empty() ? next - 1 : reports.back();
        inFlight[(last + 1) % kNames].insert(last + 1);
        totalReports += reports.size();
        next = last + 2; // past the one that may have been in flight

        ScopedKey key;
        ASSERT_EQ(ERROR_SUCCESS, OpenKey(HKEY_LOCAL_MACHINE, kDurableKey, key.Out()));
        for (int i = 0; i < kNames; ++i) {
            std::u16string name = NameOf(ULONGLONG(i));
            if (Query(key, name.c_str()) == ERROR_FILE_NOT_FOUND) {
                EXPECT_FALSE(reported[i]) << "value " << i << " lost its completed write";
                continue;
            }
            std::vector<BYTE> data = GetBytes(key, name.c_str());
            ASSERT_EQ(kPayloadBytes, data.size()) << "value " << i;
            ULONGLONG n = 0;
            std::memcpy(&n, data.data(), sizeof(n));
            EXPECT_EQ(Payload(n), data) << "value " << i << " is torn";
            EXPECT_TRUE((reported[i] && *reported[i] == n) || inFlight[i].count(n) != 0)
                << "value " << i << " holds write " << n << ", last completed "
                << (reported[i] ? std::to_string(*reported[i]) : "none");
        }
    }
    EXPECT_GT(totalReports, 0u) << "no write ever completed";
    RecordProperty("completed_writes", std::to_string(totalReports));
    EXPECT_EQ("ok", IntegrityCheck(Root() / "registry.db"));
    ScopedKey key(Create(u"After"));
    EXPECT_EQ(ERROR_SUCCESS, SetDword(key, u"v", 1)) << "the registry goes on working";
}

TEST_F(RegistryProcessesTest, TwoProcessesWritingUnderOneKeyLoseNothing)
{
    constexpr DWORD kCount = 200;
    std::vector<std::unique_ptr<ChildProcess>> children;
    for (const char* prefix : {"a", "b"})
        children.push_back(std::make_unique<ChildProcess>(
            ChildArgs("DISABLED_DistinctWriter"),
            std::vector<std::string>{"ORV_REG_CHILD_ROOT=" + Root().string(),
                                     std::string("ORV_REG_CHILD_PREFIX=") + prefix,
                                     "ORV_REG_CHILD_COUNT=" + std::to_string(kCount)}));
    for (auto& child : children) {
        auto result = child->Wait();
        ASSERT_EQ(0, result.exitCode) << result.out << result.err;
    }
    ScopedKey key;
    ASSERT_EQ(ERROR_SUCCESS, OpenKey(HKEY_LOCAL_MACHINE, u"Software\\OrvTest\\Shared", key.Out()));
    EXPECT_EQ(2 * kCount, orvtest::registry::QueryInfo(key).cValues);
    for (const char* prefix : {"a", "b"})
        for (DWORD i = 0; i < kCount; ++i) {
            std::u16string name = orvtest::Wide(prefix + std::to_string(i));
            EXPECT_EQ(orvtest::registry::DwordBytes(i), GetBytes(key, name.c_str())) << prefix << i;
        }
    EXPECT_EQ("ok", IntegrityCheck(Root() / "registry.db"));
}

} // namespace
