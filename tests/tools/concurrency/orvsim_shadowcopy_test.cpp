// `orvsim diskshadow` and `orvsim vssadmin` over shadow copies the installed provider makes in its
// own service process: a persistent one of E: made, listed and deleted, and volatile ones deleted
// by a command and at the end of the session.
#include "host/vssregistration.h"
#include "sim/storage/storagesim.h"
#include "sim/vss/vsssim.h"
#include "tests/pal/registry/registry_testing.h"

#include "tests/support/pipedchild.h"

#include "pal/paleventlog.h"
#include "pal/winsvc.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>

namespace {

using orvtest::registry::ProcessResult;

const std::string kVssadminBanner =
    "vssadmin 1.1 - Volume Shadow Copy Service administrative "
    "command-line tool\n(C) Copyright 2001-2013 Microsoft Corp.\n\n";
// The volume name of E: on every machine.
const std::string kVolumeE = "\\\\?\\Volume{78003987-3202-1ef0-86f6-060ff4c62795}\\";

class OrvsimShadowCopyTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        ASSERT_HR(S_OK, storagesim::InitializeState("", ""));
        std::filesystem::path dir = MakeDir("Program Files/Orvane");
        std::filesystem::copy_file(ORVPROV_EXE, dir / "orvprov");
        ProcessResult r = orvtest::registry::RunProcess(
            {(dir / "orvprov").string(), "-r", "service", "-a", "LocalSystem"});
        ASSERT_EQ(0, r.exitCode) << r.out << r.err;
    }
    // The tool's output with the times it printed as "<time>", after the banner (diskshadow's
    // names the time too).
    static std::string Normalized(const std::string& out)
    {
        static const std::regex time("\\d{1,2}/\\d{1,2}/\\d{4} \\d{1,2}:\\d\\d:\\d\\d [AP]M");
        std::string text = std::regex_replace(out, time, "<time>");
        size_t body = text.find("\n\n");
        return text.substr(text.rfind("Microsoft DiskShadow", 0) == 0 ? body + 2 : 0);
    }
    ProcessResult Diskshadow(const std::string& script)
    {
        std::ofstream(Root() / "script.dsh") << script;
        return orvtest::registry::RunOrvsim(Root(),
                                            {"diskshadow", "-s", (Root() / "script.dsh").string()});
    }
    // The provider's service: it stops by itself once VSS has unloaded the provider, and is
    // started again by the next activation.
    static DWORD ServiceState()
    {
        SC_HANDLE hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
        SC_HANDLE hService = OpenServiceW(hManager, W("Orvhwsvc"), SERVICE_QUERY_STATUS);
        SERVICE_STATUS status = {};
        BOOL fQueried = QueryServiceStatus(hService, &status);
        CloseServiceHandle(hService);
        CloseServiceHandle(hManager);
        return fQueried ? status.dwCurrentState : 0;
    }
    static std::vector<vsssim::ShadowCopyInfo> Inventory()
    {
        std::vector<vsssim::ShadowCopyInfo> copies;
        EXPECT_HR(S_OK, vsssim::QueryShadowCopies(&copies));
        return copies;
    }
};

TEST_F(OrvsimShadowCopyTest, PersistentShadowCopyOfEMadeListedAndDeleted)
{
    ProcessResult r =
        Diskshadow("set context persistent\nadd volume e: alias data\ncreate\nexpose %data% p:\n");
    ASSERT_EQ(0, r.exitCode) << r.out << r.err;
    std::vector<vsssim::ShadowCopyInfo> copies = Inventory();
    ASSERT_EQ(1u, copies.size());
    EXPECT_EQ(u"P:", copies[0].exposedName);
    const std::string id = vsssim::GuidText(copies[0].snapshotId),
                      set = vsssim::GuidText(copies[0].setId);
    const std::string machine = pal::Utf16ToUtf8(pal::EventLogComputerName());
    const std::string device = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1";
    const std::string created =
        "-> set context persistent\n-> add volume e: alias data\n-> create\n\nAlias data for "
        "shadow ID " +
        id + " set as environment variable.\nAlias VSS_SHADOW_SET for shadow set ID " + set +
        " set as environment variable.\n\nQuerying all shadow copies with the shadow copy "
        "set ID " +
        set + "\n\n\t* Shadow copy ID = " + id + "\t\t%data%\n\t\t- Shadow copy set: " + set +
        "\t\t%VSS_SHADOW_SET%\n\t\t- Original count of shadow copies = 1"
        "\n\t\t- Original volume name: " +
        kVolumeE +
        " [E:\\]\n\t\t- Creation time: <time>"
        "\n\t\t- Shadow copy device name: " +
        device + "\n\t\t- Originating machine: " + machine + "\n\t\t- Service machine: " + machine +
        "\n\t\t- Not exposed\n\t\t- Provider ID: "
        "{6a06b0b5-00e8-44b1-99f0-55fe420b2277}\n\t\t- Attributes:  No_Auto_Release Persistent "
        "Hardware_Assisted\n\nNumber of shadow copies listed: 1\n-> expose %data% p:\n-> %data% = " +
        id + "\nThe shadow copy was successfully exposed as P:\\.\n";
    EXPECT_EQ(created, Normalized(r.out));

    const std::string listed =
        kVssadminBanner + "Contents of shadow copy set ID: " + set +
        "\n   Contained 1 shadow copies at creation time: <time>\n      Shadow Copy ID: " + id +
        "\n         Original Volume: (E:)" + kVolumeE + "\n         Shadow Copy Volume: " + device +
        "\n         Originating Machine: " + machine + "\n         Service Machine: " + machine +
        "\n         Provider: 'Verdane VSS Hardware Provider'\n         Type: ApplicationRollback"
        "\n         Attributes: Persistent, No auto release, Hardware assisted\n\n";
    // Each way of naming it selects it; another volume selects nothing.
    for (const std::string& option :
         std::vector<std::string>{"/for=E:", "/Set=" + set, "/shadow=" + id, "/for=f:"}) {
        r = orvtest::registry::RunOrvsim(Root(), {"vssadmin", "list", "shadows", option});
        ASSERT_EQ(0, r.exitCode) << r.err;
        EXPECT_EQ(option != "/for=f:"
                      ? listed
                      : kVssadminBanner + "No items found that satisfy the query.\n",
                  Normalized(r.out));
    }

    // Asked first, vssadmin deletes only on "Y", once the service that made it has stopped.
    EXPECT_TRUE(orvtest::WaitUntil([&] { return ServiceState() == SERVICE_STOPPED; }));
    const std::string kAsk = kVssadminBanner + "Do you really want to delete 1 shadow copies "
                                               "(Y/N): [N]? \n";
    for (const char* answer : {"\n", "y\n"}) {
        r = orvtest::registry::RunProcess({orvtest::registry::OrvsimPath(), "--root",
                                           Root().string(), "vssadmin", "delete", "shadows",
                                           "/shadow=" + id},
                                          {}, answer);
        EXPECT_EQ(0, r.exitCode) << r.err;
        bool fYes = answer[0] == 'y';
        EXPECT_EQ(kAsk + (fYes ? "Successfully deleted 1 shadow copies.\n" : ""), r.out);
        EXPECT_EQ(fYes ? 0u : 1u, Inventory().size());
    }
    storagesim::StateView view;
    ASSERT_HR(S_OK, storagesim::ReadState(&view));
    EXPECT_EQ(6u, view.disks.size());
    EXPECT_EQ(0u, view.snapshots.size());
}

TEST_F(OrvsimShadowCopyTest, VolatileShadowCopiesEndWithTheSession)
{
    // Typed commands, each next one once the provider's service has stopped after the last.
    orvtest::CPipedChild diskshadow(ORVSIM_EXE, {"diskshadow"});
    auto until = [&](const std::string& end) {
        std::string text;
        for (std::string line; text.find(end) == std::string::npos && line != "<end>";)
            text += (line = diskshadow.Line());
        EXPECT_TRUE(orvtest::WaitUntil([&] { return ServiceState() == SERVICE_STOPPED; }));
        return text;
    };
    ASSERT_TRUE(diskshadow.Write("add volume E:\ncreate\n"));
    until("Number of shadow copies listed: 1");
    ASSERT_TRUE(diskshadow.Write("delete shadows id %VSS_SHADOW_1%\nadd volume E:\ncreate\n"));
    std::string out = until("Number of shadow copies listed: 1");
    std::smatch deleted;
    ASSERT_TRUE(std::regex_search(
        out, deleted,
        std::regex("-> %VSS_SHADOW_1% = (\\{[0-9a-f-]{36}\\})\n\nDeleting shadow copy "
                   "(\\{[0-9a-f-]{36}\\}) on volume (.*) from provider "
                   "\\{6a06b0b5-00e8-44b1-99f0-55fe420b2277\\} \\[Attributes: "
                   "0x00010000\\]\\.\\.\\.\n\nNumber of shadow copies deleted: 1\n")))
        << out;
    EXPECT_EQ(deleted[1].str(), deleted[2].str());
    EXPECT_EQ(kVolumeE, deleted[3].str());
    EXPECT_NE(std::string::npos, out.find("Alias VSS_SHADOW_2 for shadow ID {")) << out;
    EXPECT_NE(std::string::npos, out.find("Attributes:  Hardware_Assisted\n")) << out;
    ASSERT_EQ(1u, Inventory().size());

    // The end of the session deletes the volatile shadow copy left.
    ASSERT_TRUE(diskshadow.Write("exit\n"));
    EXPECT_EQ(0, diskshadow.Close());
    EXPECT_EQ(0u, Inventory().size());
}

TEST_F(OrvsimShadowCopyTest, TransportableSetWritesItsMetadataAndIsImportedFromIt)
{
    const std::string metadata = (Root() / "e.cab").string();
    ProcessResult r = Diskshadow("set context persistent\nset option transportable\nset metadata " +
                                 metadata + "\nadd volume E:\ncreate\n");
    ASSERT_EQ(0, r.exitCode) << r.out << r.err;
    EXPECT_NE(std::string::npos, r.out.find("- Shadow copy device name: \n")) << r.out;
    ASSERT_EQ(1u, Inventory().size());
    EXPECT_TRUE(Inventory()[0].deviceName.empty());

    r = Diskshadow("import\nload metadata " + metadata + "\nimport\n");
    ASSERT_EQ(1, r.exitCode) << r.out << r.err;
    EXPECT_NE(std::string::npos, r.out.find("No metadata is loaded: use load metadata first.\n"));
    r = Diskshadow("load metadata " + metadata + "\nimport\n");
    ASSERT_EQ(0, r.exitCode) << r.out << r.err;
    std::vector<vsssim::ShadowCopyInfo> copies = Inventory();
    ASSERT_EQ(1u, copies.size());
    EXPECT_NE(0, copies[0].lAttributes & VSS_VOLSNAP_ATTR_IMPORTED);
    EXPECT_FALSE(copies[0].deviceName.empty());
    EXPECT_NE(std::string::npos, r.out.find("Alias VSS_SHADOW_1 for shadow ID " +
                                            vsssim::GuidText(copies[0].snapshotId)))
        << r.out;
    EXPECT_NE(std::string::npos, r.out.find(" Imported")) << r.out;
}

} // namespace
