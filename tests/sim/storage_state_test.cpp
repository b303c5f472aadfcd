// The simulated storage's state: topology, LUN data, settings and persisted faults.
#include "tests/sim/support/storagefixture.h"

#include "pal/winreg.h"

#include <algorithm>
#include <cstdlib>

namespace {

using storagesim::StateView;

class StorageStateTest : public orvtest::PalTest
{
protected:
    StateView View()
    {
        StateView view;
        EXPECT_HR(S_OK, storagesim::ReadState(&view));
        return view;
    }
};

TEST_F(StorageStateTest, FreshMachineHasTheDefaultTopology)
{
    StateView view = View();
    EXPECT_EQ("3.5.1.0", view.version);
    EXPECT_EQ("ORVHOST01", view.machine);
    EXPECT_TRUE(view.fHyperVRoleEnabled);
    EXPECT_EQ("progress", view.handoff);
    ASSERT_EQ(2u, view.filers.size());
    EXPECT_EQ("verdane01", view.filers[0].name);
    EXPECT_TRUE(view.filers[0].fUnlockedClone);
    EXPECT_TRUE(view.filers[0].fBackupSnapshots);
    EXPECT_EQ("verdane02", view.filers[1].name);
    EXPECT_FALSE(view.filers[1].fUnlockedClone);
    EXPECT_FALSE(view.filers[1].fBackupSnapshots);
    ASSERT_EQ(5u, view.luns.size());
    for (const auto& lun : view.luns) {
        EXPECT_EQ("ORVANE", lun.vendor);
        EXPECT_EQ(12u, lun.serial.size());
        EXPECT_EQ(0u, lun.path.rfind("/vol/", 0)) << lun.path;
    }
    EXPECT_EQ("/vol/vol1/lun1", view.luns[0].path);
    ASSERT_EQ(6u, view.disks.size());
    auto count = [&view](auto predicate) {
        return std::count_if(view.disks.begin(), view.disks.end(), predicate);
    };
    EXPECT_GE(count([](const auto& d) { return d.transport == "iscsi"; }), 1);
    EXPECT_GE(count([](const auto& d) { return d.transport == "fc" && !d.filer.empty(); }), 1);
    EXPECT_EQ(1, count([](const auto& d) { return d.vendor != "ORVANE" && d.filer.empty(); }));
    EXPECT_EQ(std::vector<std::string>{"E:\\"}, view.disks[0].mountPoints);
    EXPECT_TRUE(view.snapshots.empty());
}

TEST_F(StorageStateTest, InitializeReplacesTheStateWithATopology)
{
    const std::string topology = R"({
      "version": "3.2.0.0", "host": {"name": "LAB7", "hyperVRoleEnabled": false},
      "handoff": "both",
      "filers": [{"name": "f1", "unlockedClone": false, "volumes": [
        {"name": "v", "luns": [{"name": "l", "serial": "ABCDEFGHIJKL",
          "host": {"transport": "fc", "port": 4, "mountPoints": ["Q:\\"]}}]}]}]})";
    std::string message;
    ASSERT_HR(S_OK, storagesim::InitializeState(topology, "", &message)) << message;
    StateView view = View();
    EXPECT_EQ("3.2.0.0", view.version);
    EXPECT_EQ("LAB7", view.machine);
    EXPECT_FALSE(view.fHyperVRoleEnabled);
    EXPECT_EQ("both", view.handoff);
    ASSERT_EQ(1u, view.luns.size());
    EXPECT_EQ("/vol/v/l", view.luns[0].path);
    ASSERT_EQ(1u, view.disks.size());
    EXPECT_EQ(4, view.disks[0].port);
    // The version given on the command line wins over the topology's.
    ASSERT_HR(S_OK, storagesim::InitializeState(topology, "4.0.0.1"));
    EXPECT_EQ("4.0.0.1", View().version);
}

TEST_F(StorageStateTest, BadTopologyIsRefusedWithAMessage)
{
    const struct
    {
        const char* json;
        const char* message;
    } cases[] = {
        {"{filers", "topology:"},
        {"[1, 2]", "JSON object"},
        {"{}", "filers"},
        {R"({"filers": [{"name": "f", "volumes": [{"name": "v", "luns": [
           {"name": "l", "serial": "SHORT"}]}]}]})",
         "12 characters"},
        {R"({"filers": [{"name": "f", "volumes": [{"name": "v", "luns": [
           {"name": "l", "serial": "ABCDEFGHIJKL", "host": {"transport": "sas"}}]}]}]})",
         "transport"},
        {R"({"handoff": "never", "filers": []})", "handoff"},
    };
    for (const auto& c : cases) {
        std::string message;
        EXPECT_HR(E_INVALIDARG, storagesim::InitializeState(c.json, "", &message)) << c.json;
        EXPECT_NE(std::string::npos, message.find(c.message)) << message;
    }
}

TEST_F(StorageStateTest, StateFollowsTheMachineRoot)
{
    ASSERT_HR(S_OK, storagesim::SetProductVersion("9.9.9.9"));
    EXPECT_EQ("9.9.9.9", View().version);
    std::filesystem::path other = MakeDir("other-machine");
    std::string saved = Root().string();
    setenv("ORVSIM_ROOT", other.c_str(), 1);
    EXPECT_EQ("3.5.1.0", View().version);
    setenv("ORVSIM_ROOT", saved.c_str(), 1);
    EXPECT_EQ("9.9.9.9", View().version);
}

TEST_F(StorageStateTest, LunDataIsWrittenAndReadBackAndItsFailuresChangeNothing)
{
    ASSERT_HR(S_OK, storagesim::WriteLunData("verdane01", "/vol/vol1/lun1", 100, "hello"));
    std::string data;
    ASSERT_HR(S_OK, storagesim::ReadLunData("verdane01", "/vol/vol1/lun1", 98, 9, &data));
    EXPECT_EQ(std::string("\0\0hello\0\0", 9), data);
    // Other LUNs are untouched.
    ASSERT_HR(S_OK, storagesim::ReadLunData("verdane01", "/vol/vol1/lun2", 100, 5, &data));
    EXPECT_EQ(std::string(5, '\0'), data);

    data = "unchanged";
    EXPECT_HR(E_INVALIDARG, storagesim::WriteLunData("verdane01", "/vol/vol1/lun1",
                                                     storagesim::kImageBytes - 2, "abc"));
    EXPECT_HR(E_INVALIDARG, storagesim::ReadLunData("verdane01", "/vol/vol1/lun1",
                                                    storagesim::kImageBytes, 1, &data));
    EXPECT_HR(TESSERA_E_FILER_NOT_FOUND,
              storagesim::WriteLunData("nofiler", "/vol/vol1/lun1", 0, "x"));
    EXPECT_HR(TESSERA_E_LUN_NOT_FOUND,
              storagesim::ReadLunData("verdane01", "/vol/vol9/lun1", 0, 1, &data));
    EXPECT_HR(TESSERA_E_SNAPSHOT_NOT_FOUND,
              storagesim::ReadSnapshotData("verdane01", "/vol/vol1/lun1", "none", 0, 1, &data));
    EXPECT_EQ("unchanged", data);
}

TEST_F(StorageStateTest, DriveLeadsToItsLun)
{
    std::string filer, path;
    ASSERT_HR(S_OK, storagesim::FindLunByDrive("i:\\", &filer, &path));
    EXPECT_EQ("verdane02", filer);
    EXPECT_EQ("/vol/vol1/lun1", path);
    EXPECT_HR(S_OK, storagesim::FindLunByDrive("C:\\mnt\\logs\\", &filer, &path));
    EXPECT_EQ("/vol/vol2/lun1", path);
    // The other vendor's disk is not the service's.
    EXPECT_HR(TESSERA_E_DRIVE_NOT_FOUND, storagesim::FindLunByDrive("K:\\", &filer, &path));
}

TEST_F(StorageStateTest, FaultRulesArePersistedAndCounted)
{
    ASSERT_HR(S_OK, storagesim::SetFault("EnumVirtualDisks", E_ACCESSDENIED, 2));
    ASSERT_HR(S_OK, storagesim::SetDelay("CreateSnapShot1", 250));
    ASSERT_HR(S_OK, storagesim::SetHandoffFault(storagesim::HandoffFault::kTwice, 1));
    std::vector<storagesim::FaultInfo> faults;
    ASSERT_HR(S_OK, storagesim::ListFaults(&faults));
    ASSERT_EQ(3u, faults.size());
    EXPECT_EQ("CreateSnapShot1", faults[0].method);
    EXPECT_EQ("delay", faults[0].kind);
    EXPECT_EQ(250u, faults[0].dwDelayMs);
    EXPECT_EQ(storagesim::kEveryCall, faults[0].lRemaining);
    EXPECT_EQ("handoff-twice", faults[1].kind);
    EXPECT_EQ("EnumVirtualDisks", faults[2].method);
    EXPECT_HR(E_ACCESSDENIED, faults[2].hr);
    EXPECT_EQ(2, faults[2].lRemaining);
    ASSERT_HR(S_OK, storagesim::ClearFaults());
    ASSERT_HR(S_OK, storagesim::ListFaults(&faults));
    EXPECT_TRUE(faults.empty());
}

TEST_F(StorageStateTest, FaultRulesAreChecked)
{
    EXPECT_HR(E_INVALIDARG, storagesim::SetFault("NoSuchMethod", E_FAIL));
    EXPECT_HR(E_INVALIDARG, storagesim::SetFault("EnumVirtualDisks", S_OK));
    EXPECT_HR(E_INVALIDARG, storagesim::SetFault("EnumVirtualDisks", E_FAIL, 0));
    EXPECT_HR(E_INVALIDARG, storagesim::SetDelay("EnumVirtualDisks", 5, -2));
    EXPECT_HR(E_INVALIDARG, storagesim::SetProductVersion(""));
}

} // namespace
