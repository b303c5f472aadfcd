// `orvsim storage`: setting up the topology, showing the state, faults that reach a later
// process, and LUN data written and read for checks.
#include "sim/storage/simcodes.h"
#include "sim/storage/storagesim.h"
#include "store/tessera.h"
#include "tests/pal/registry/registry_testing.h"

#include "pal/atlbase.h"
#include "pal/regkey.h"

#include <fstream>
#include <string>

namespace {

using orvtest::registry::ProcessResult;

const char* const kDone = "The operation completed successfully.\n";

class OrvsimStorageTest : public orvtest::PalTest
{
protected:
    ProcessResult Storage(const std::vector<std::string>& args)
    {
        std::vector<std::string> all{"storage"};
        all.insert(all.end(), args.begin(), args.end());
        return orvtest::registry::RunOrvsim(Root(), all);
    }
    void Ok(const std::vector<std::string>& args)
    {
        ProcessResult r = Storage(args);
        ASSERT_EQ(0, r.exitCode) << r.err;
        ASSERT_EQ(kDone, r.out);
    }
};

TEST_F(OrvsimStorageTest, ShowListsTheDefaultMachine)
{
    ProcessResult r = Storage({"show"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    for (const char* line :
         {"Tessera 3.5.1.0 on ORVHOST01 (Hyper-V role enabled, hand-off progress, cut copy)\n",
          "  verdane02  unlocked clones: no  backup snapshots: no\n",
          "  verdane01:/vol/vol1/lun1  serial HnLmC0DH4Rdx  ORVANE LUN 9.1  10240 MiB\n",
          "  E:\\  verdane01:/vol/vol1/lun1  iSCSI 2:0:0:0\n",
          "  J:\\  verdane02:/vol/vol1/lun2  FC 3:0:1:1  read-only\n",
          "  K:\\  ACMEDISK AC00000000K1 (not managed)  FC 3:0:2:0\n"})
        EXPECT_NE(std::string::npos, r.out.find(line)) << line << "\nin:\n" << r.out;
    EXPECT_EQ("", r.err);
}

TEST_F(OrvsimStorageTest, InitTakesATopologyFileAndAVersion)
{
    std::filesystem::path file = Root() / "topology.json";
    std::ofstream(file) << R"({"host": {"name": "LAB"}, "filers": [{"name": "nas1",
        "volumes": [{"name": "v", "luns": [{"name": "l", "serial": "SERIAL000001",
        "host": {"mountPoints": ["X:\\"]}}]}]}]})";
    Ok({"init", "--topology", file.string(), "--version", "3.3"});
    ProcessResult r = Storage({"show", "--json"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("\"version\": \"3.3\"")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("\"nas1\"")) << r.out;
    EXPECT_EQ(std::string::npos, r.out.find("verdane01")) << r.out;
    storagesim::StateView view;
    ASSERT_HR(S_OK, storagesim::ReadState(&view));
    EXPECT_EQ("LAB", view.machine);
    // Installed: the provider finds the version where the service's setup writes it.
    CRegKey key;
    WCHAR szVersion[16];
    ULONG cch = 16;
    ASSERT_EQ(0, key.Open(HKEY_LOCAL_MACHINE, W("Software\\Halvern\\Tessera"), KEY_READ));
    ASSERT_EQ(0, key.QueryStringValue(W("ProductVersion"), szVersion, &cch));
    EXPECT_EQ("3.3", orvtest::Narrow(szVersion));
}

TEST_F(OrvsimStorageTest, InitRefusesABadTopologyAndKeepsTheState)
{
    std::filesystem::path file = Root() / "bad.json";
    std::ofstream(file) << "{not json";
    ProcessResult r = Storage({"init", "--topology", file.string()});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ(0u, r.err.rfind("ERROR: topology: ", 0)) << r.err;
    storagesim::StateView view;
    ASSERT_HR(S_OK, storagesim::ReadState(&view));
    EXPECT_EQ(2u, view.filers.size());
}

TEST_F(OrvsimStorageTest, FaultsAndSettingsSetByTheToolReachTheServiceOfAnotherProcess)
{
    Ok({"fail", "IsUnlockedCloneSupported", "0x80070005", "--times", "1"});
    Ok({"delay", "EnumVirtualDisks", "10"});
    Ok({"handoff", "never", "--times", "2"});
    std::vector<storagesim::FaultInfo> faults;
    ASSERT_HR(S_OK, storagesim::ListFaults(&faults));
    ASSERT_EQ(3u, faults.size());
    EXPECT_EQ("handoff-never", faults[0].kind);
    EXPECT_EQ(2, faults[0].lRemaining);
    EXPECT_EQ("EnumVirtualDisks", faults[1].method);
    EXPECT_EQ(10u, faults[1].dwDelayMs);
    EXPECT_HR(E_ACCESSDENIED, faults[2].hr);
    ProcessResult r = Storage({"show"});
    EXPECT_NE(std::string::npos,
              r.out.find("  IsUnlockedCloneSupported  fail 0x80070005  next 1 call(s)\n"))
        << r.out;
    Ok({"clear-faults"});
    ASSERT_HR(S_OK, storagesim::ListFaults(&faults));
    EXPECT_TRUE(faults.empty());

    Ok({"handoff", "both"});
    Ok({"hyperv", "disabled"});
    storagesim::StateView view;
    ASSERT_HR(S_OK, storagesim::ReadState(&view));
    EXPECT_EQ("both", view.handoff);
    EXPECT_TRUE(view.fHyperVInstalled);
    EXPECT_FALSE(view.fHyperVRoleEnabled);
}

TEST_F(OrvsimStorageTest, FailAcceptsNamesAndRefusesSuccessCodesAndUnknownMethods)
{
    Ok({"fail", "EnumVirtualDisks", "E_OUTOFMEMORY"});
    ProcessResult r = Storage({"fail", "EnumVirtualDisks", "0"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ("ERROR: CODE must be a failure HRESULT, such as 0x80070005 or E_ACCESSDENIED.\n",
              r.err);
    r = Storage({"fail", "Frobnicate", "E_FAIL"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_NE(std::string::npos, r.err.find("Frobnicate")) << r.err;
}

TEST_F(OrvsimStorageTest, DataIsWrittenByDriveAndReadByLun)
{
    Ok({"write", "--drive", "f:\\", "--offset", "4", "payload"});
    std::string data;
    ASSERT_HR(S_OK, storagesim::ReadLunData("verdane01", "/vol/vol1/lun2", 4, 7, &data));
    EXPECT_EQ("payload", data);
    ProcessResult r = Storage({"read", "--lun", "verdane01:/vol/vol1/lun2", "--length", "12"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_EQ("....payload.\n", r.out);
}

TEST_F(OrvsimStorageTest, ReadOfASnapshot)
{
    ASSERT_HR(S_OK, storagesim::WriteLunData("verdane02", "/vol/vol1/lun1", 0, "old"));
    {
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        storagesim::CStorageService service;
        ASSERT_HR(S_OK, service.Start());
        CComPtr<ISnapShot> pSnapShot;
        ASSERT_HR(S_OK, pSnapShot.CoCreateInstance(CLSID_VSSSupport, nullptr, CLSCTX_LOCAL_SERVER));
        std::u16string drive = u"I:\\";
        DRIVE_ENTRY entry{drive.data(), 0};
        DRIVE_LIST drives{0, 0, 1, &entry};
        ASSERT_HR(S_OK, pSnapShot->CreateSnapShot(&drives, u"snapI"));
        pSnapShot.Release();
        service.Stop();
        CoUninitialize();
    }
    ASSERT_HR(S_OK, storagesim::WriteLunData("verdane02", "/vol/vol1/lun1", 0, "new"));
    ProcessResult r = Storage({"read", "--drive", "I:\\", "--snapshot", "snapI", "--length", "3"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_EQ("old\n", r.out);
    r = Storage({"read", "--drive", "I:\\", "--snapshot", "none"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ("ERROR: The data cannot be read (0xC0040463).\n", r.err);
}

TEST_F(OrvsimStorageTest, LunMustBeNamed)
{
    ProcessResult r = Storage({"read"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ("ERROR: Name the LUN with --lun FILER:PATH or --drive DRIVE.\n", r.err);
    r = Storage({"write", "--lun", "nocolon", "x"});
    EXPECT_EQ("ERROR: --lun must be FILER:PATH, such as verdane01:/vol/vol1/lun1.\n", r.err);
    r = Storage({"write", "--drive", "K:\\", "x"});
    EXPECT_EQ("ERROR: No LUN of the service is mounted at K:\\ (0xC0040468).\n", r.err);
    r = Storage({"write", "--lun", "verdane01:/vol/vol1/lun1", "--offset", "65535", "xy"});
    EXPECT_EQ("ERROR: The data cannot be written (0x80070057).\n", r.err);
}

} // namespace
