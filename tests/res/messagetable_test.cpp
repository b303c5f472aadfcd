// The compiled message table: all 41 entries with their ids, header names and exact texts, the
// header's types, agreement with the .mc source it was generated from, and every
// message rendered with insertion strings.
#include "res/messages.h"
#include "res/msgrender.h"
#include "tests/support/paltest.h"

#include <fstream>
#include <map>
#include <sstream>
#include <type_traits>

namespace {

using orvtest::Narrow;

struct Expected
{
    DWORD dwId;
    DWORD dwHeaderId; // the value the generated header gives `name`
    const char* name; // also the table's symbolic name of the id
    const char16_t* text;
};

// The table as the system's administrators are promised it: each id as a number and as the
// generated header names it, and its text.
#define ID(x) static_cast<DWORD>(x), #x
const Expected kTable[] = {
    {0x40041000, ID(ORVPROV_EVENT_PROVIDER_LOADED),
     u"Verdane VSS hardware provider is loaded.\r\n"},
    {0x40041001, ID(ORVPROV_EVENT_PROVIDER_UNLOADED),
     u"Verdane VSS hardware provider is unloaded.\r\n"},
    {0x40041002, ID(ORVPROV_EVENT_COMMIT_COMPLETED),
     u"Verdane VSS hardware provider has successfully completed CommitSnapshots for "
     u"SnapshotSetId %1 in %2 milliseconds.\r\n"},
    {0x40041003, ID(ORVPROV_EVENT_PRECOMMIT_COMPLETED),
     u"Verdane VSS hardware provider has successfully completed PreCommitSnapshots for "
     u"SnapshotSetId %1 in %2 milliseconds.\r\n"},
    {0x40041004, ID(ORVPROV_EVENT_POSTCOMMIT_COMPLETED),
     u"Verdane VSS hardware provider has successfully completed PostCommitSnapshots for "
     u"SnapshotSetId %1 in %2 milliseconds.\r\n"},
    {0x40041005, ID(ORVPROV_EVENT_SOURCE_LUN_ADDED),
     u"Verdane VSS hardware provider is adding a source lun [VendorId=%1, ProductId=%2, "
     u"SerialNo=%3] to SnapshotSetId %4.\r\n"},
    {0x40041006, ID(ORVPROV_EVENT_LUN_DELETED),
     u"Verdane VSS hardware provider has successfully unmapped and deleted a lun "
     u"[DeviceName=%1, VendorId=%2, ProductId=%3, SerialNo=%4].\r\n"},
    {0x40041007, ID(ORVPROV_EVENT_LUN_MAPPED),
     u"Verdane VSS hardware provider has successfully mapped a lun [VendorId=%1, ProductId=%2, "
     u"SerialNo=%3].\r\n"},
    {0x40041008, ID(ORVPROV_EVENT_SERVICE_STARTED),
     u"Verdane VSS hardware provider service has started.\r\n"},
    {0x40041009, ID(ORVPROV_EVENT_SERVICE_STOPPED),
     u"Verdane VSS hardware provider service has stopped.\r\n"},
    {0x8004110C, ID(ORVPROV_EVENT_COMMIT_SLOW),
     u"Verdane VSS hardware provider has completed CommitSnapshots for SnapshotSetId %1 in %2 "
     u"milliseconds. Since it takes more than 10 seconds, this can fail the current shadow "
     u"copy.\r\n"},
    {0xC0040300, ID(ORVPROV_EVENT_INITIALIZE_FAILED),
     u"Verdane VSS hardware provider failed to initialize. The data is the error code.\r\n"},
    {0xC0040301, ID(ORVPROV_E_MULTILUN_VOLUME_NOT_SUPPORTED),
     u"ORVPROV_E_MULTILUN_VOLUME_NOT_SUPPORTED\r\n"},
    {0xC0040302, ID(ORVPROV_E_INCONSISTENT_SNAPSHOTSETID),
     u"ORVPROV_E_INCONSISTENT_SNAPSHOTSETID\r\n"},
    {0xC0040303, ID(ORVPROV_E_LUN_NOT_RECOGNIZED), u"ORVPROV_E_LUN_NOT_RECOGNIZED\r\n"},
    {0xC0040304, ID(ORVPROV_E_GETTARGETLUNINFO_FAILED), u"ORVPROV_E_GETTARGETLUNINFO_FAILED\r\n"},
    {0xC0040305, ID(ORVPROV_E_MAPTARGETLUN_FAILED), u"ORVPROV_E_MAPTARGETLUN_FAILED\r\n"},
    {0xC0040306, ID(ORVPROV_E_DELETETARGETLUN_FAILED), u"ORVPROV_E_DELETETARGETLUN_FAILED\r\n"},
    {0xC0040307, ID(ORVPROV_E_CREATESNAPSHOT_FAILED), u"ORVPROV_E_CREATESNAPSHOT_FAILED\r\n"},
    {0xC0040308, ID(ORVPROV_E_ENUMVDISK_FAILED), u"ORVPROV_E_ENUMVDISK_FAILED\r\n"},
    {0xC0040309, ID(ORVPROV_E_ACCESS_FAILED), u"ORVPROV_E_ACCESS_FAILED\r\n"},
    {0xC004030A, ID(ORVPROV_E_PREPARESNAPSHOT_FAILED), u"ORVPROV_E_PREPARESNAPSHOT_FAILED\r\n"},
    {0xC004030B, ID(ORVPROV_E_UNEXPECTED_ERROR), u"ORVPROV_E_UNEXPECTED_ERROR\r\n"},
    {0xC004030C, ID(ORVPROV_E_INCORRECT_TESSERA), u"ORVPROV_E_INCORRECT_TESSERA\r\n"},
    {0xC0041100, ID(ORVPROV_EVENT_LOAD_FAILED),
     u"Verdane VSS hardware provider failed in Loading method.\r\nThis error is caused by "
     u"provider object initialization failure.\r\nThe data is the error code.\r\n"},
    {0xC0041101, ID(ORVPROV_EVENT_PRECOMMIT_FAILED),
     u"Verdane VSS hardware provider failed in PreCommitSnapshots method "
     u"[SnapshotSetId=%1].\r\nThe data is the error code.\r\n"},
    {0xC0041102, ID(ORVPROV_EVENT_COMMIT_FAILED),
     u"Verdane VSS hardware provider failed in CommitSnapshots method [SnapshotSetId=%1].\r\n"
     u"Tessera failed to create snapshot.%r\r\nPlease check Tessera event logs.%r\r\n%r\r\nThe "
     u"data is the error code.\r\n"},
    {0xC0041103, ID(ORVPROV_EVENT_POSTCOMMIT_FAILED),
     u"Verdane VSS hardware provider failed in PostCommitSnapshots method "
     u"[SnapshotSetId=%1].\r\n%r\r\nThe data is the error code.\r\n"},
    {0xC0041104, ID(ORVPROV_EVENT_ABORT_CALLED),
     u"Verdane VSS hardware provider's AbortSnapshot method is called [SnapshotSetId=%1].\r\n"
     u"VSS has failed the current shadow copy session because the previous errors are not "
     u"continuable.\r\n"},
    {0xC0041105, ID(ORVPROV_EVENT_ARELUNSSUPPORTED_FAILED),
     u"Verdane VSS hardware provider failed in AreLunsSupported method.%r\r\nThe provider "
     u"failed to connect to Tessera.%r\r\nPlease check to make sure the provider service has "
     u"sufficient privileges.%r\r\nThe data is the error code.\r\n"},
    {0xC0041106, ID(ORVPROV_EVENT_BEGINPREPARE_FAILED),
     u"Verdane VSS hardware provider failed in BeginPrepareSnapshot method.%r\r\nTessera "
     u"failed to get target lun information.%r\r\nPlease check other hardware provider or "
     u"Tessera event logs.%r\r\n%r\r\nThe data is the error code.\r\n"},
    {0xC0041107, ID(ORVPROV_EVENT_GETTARGETLUNS_FAILED),
     u"Verdane VSS hardware provider failed in GetTargetLuns method.%r\r\nTessera failed to "
     u"complete the snapshot creation.%r\r\nPlease check Tessera event logs.%r\r\n%r\r\nThe "
     u"data is the error code.\r\n"},
    {0xC0041108, ID(ORVPROV_EVENT_LOCATELUNS_FAILED),
     u"Verdane VSS hardware provider failed in LocateLuns method.%r\r\nTessera failed to map "
     u"the target lun(s).%r\r\nPlease check Tessera event logs.%r\r\n%r\r\nThe data is the "
     u"error code.\r\n"},
    {0xC0041109, ID(ORVPROV_EVENT_ONLUNEMPTY_FAILED),
     u"Verdane VSS hardware provider failed in OnLunEmpty method [DeviceName=%1].\r\nThis "
     u"error can be caused by one of the following conditions:%r\r\nTessera failed to delete "
     u"the snapshot.%r\r\nPlease check Tessera event logs.%r\r\n%r\r\nThe data is the error "
     u"code.\r\n"},
    {0xC004110A, ID(ORVPROV_EVENT_FILLINLUNINFO_FAILED),
     u"Verdane VSS hardware provider failed in FillInLunInfo method [DeviceName=%1].\r\nThis "
     u"error appears when the system is running out of memory.\r\nPlease check to see how "
     u"much memory is left in the system.%r\r\nThe data is the error code.\r\n"},
    {0xC004110B, ID(ORVPROV_EVENT_ENDPREPARE_FAILED),
     u"Verdane VSS hardware provider failed in EndPrepareSnapshots method "
     u"[SnapshotSetId=%1].\r\nThis error can occur if the call to Begin_CreateSnapshot has "
     u"failed.\r\nPlease check Tessera event logs.%r\r\nThe data is the error code.\r\n"},
    {0xC004110D, ID(ORVPROV_EVENT_INCORRECT_TESSERA),
     u"Verdane VSS hardware provider cannot load because Tessera version %1 is not installed. "
     u"Please check to make sure the correct version of Tessera is installed in the host "
     u"machine.\r\n"},
    {0xC004110E, ID(ORVPROV_EVENT_CONTEXT_NOT_SUPPORTED),
     u"Verdane VSS hardware provider does not support this context. Please check "
     u"AutoRecovery option, which is currently NOT supported.\r\n"},
    {0xC004110F, ID(ORVPROV_EVENT_UNMAP_FAILED),
     u"Verdane VSS hardware provider failed unmapping snapshot luns.\r\n"},
    {0xC0041110, ID(ORVPROV_EVENT_LUNSTATECHANGE_FAILED),
     u"Verdane VSS hardware provider failed in OnLunStateChange event processing. Check if VSS "
     u"Provider is configured correctly for txf recovery.\r\n"},
    {0xC0041111, ID(ORVPROV_EVENT_PREPAREBACKUP_FAILED),
     u"Verdane VSS hardware provider failed in PrepareBackupSnapshot due to exception.\r\n"},
};
#undef ID

TEST(MessageTableTest, HoldsExactlyTheFortyOneEntriesWithTheirTexts)
{
    static_assert(std::is_same_v<decltype(ORVPROV_E_UNEXPECTED_ERROR), HRESULT>);
    static_assert(std::is_same_v<decltype(ORVPROV_EVENT_SERVICE_STARTED), DWORD>);
    size_t cMessages = 0;
    const ORV_MESSAGE* pTable = OrvGetMessageTable(&cMessages);
    ASSERT_EQ(41u, ARRAYSIZE(kTable));
    ASSERT_EQ(ARRAYSIZE(kTable), cMessages);
    for (size_t i = 0; i < cMessages; ++i) {
        const Expected& e = kTable[i];
        SCOPED_TRACE(orvtest::HexCode(e.dwId));
        EXPECT_EQ(e.dwId, pTable[i].dwId) << "the table is in id order";
        EXPECT_EQ(e.dwId, e.dwHeaderId) << e.name;
        EXPECT_EQ(e.name, Narrow(pTable[i].pszSymbolicName));
        EXPECT_EQ(0x0409, pTable[i].wLanguage);
        EXPECT_EQ(std::u16string(e.text), pTable[i].pszText);
        EXPECT_EQ(&pTable[i], OrvFindMessage(e.dwId));
    }
}

TEST(MessageTableTest, UnknownIdsAreNotFound)
{
    for (DWORD dwId : {0u, 0x40040FFFu, 0xC004110Cu, 0x4004110Cu, 0xC0041112u, 0xFFFFFFFFu})
        EXPECT_EQ(nullptr, OrvFindMessage(dwId)) << orvtest::HexCode(dwId);
}

// ---- Agreement with the source ------------------------------------------------------------

struct SourceMessage
{
    DWORD dwId;
    std::string symbolicName;
    std::string text;
};

// A reading of the .mc file independent of the generator: the statements this repository's
// source uses, one per line.
std::vector<SourceMessage> ReadMcSource(const std::string& path)
{
    std::ifstream in(path);
    EXPECT_TRUE(in) << path;
    const std::map<std::string, DWORD> severities = {
        {"Success", 0}, {"Informational", 1}, {"Warning", 2}, {"Error", 3}};
    std::vector<SourceMessage> messages;
    SourceMessage current{};
    DWORD dwSeverity = 0, dwFacility = 0, dwCode = 0;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == ';')
            continue;
        auto eq = line.find('=');
        std::string key = line.substr(0, eq);
        std::string value = eq == std::string::npos ? "" : line.substr(eq + 1);
        if (key == "MessageId") {
            dwCode = static_cast<DWORD>(std::stoul(value, nullptr, 0));
        } else if (key == "Severity") {
            dwSeverity = severities.at(value);
        } else if (key == "Facility") {
            EXPECT_EQ("Interface", value);
            dwFacility = 4;
        } else if (key == "SymbolicName") {
            current.symbolicName = value;
        } else if (key == "Language") {
            EXPECT_EQ("English", value);
            current.dwId = (dwSeverity << 30) | (dwFacility << 16) | dwCode;
            current.text.clear();
            while (std::getline(in, line) && line != ".")
                current.text += line + "\r\n";
            messages.push_back(current);
        }
    }
    return messages;
}

TEST(MessageTableTest, CompiledTableIsTheMcSource)
{
    std::vector<SourceMessage> source = ReadMcSource(ORV_RES_SOURCE_DIR "/orvmsg.mc");
    ASSERT_EQ(41u, source.size());
    std::map<DWORD, SourceMessage> byId;
    for (const SourceMessage& m : source)
        EXPECT_TRUE(byId.emplace(m.dwId, m).second) << "duplicate " << orvtest::HexCode(m.dwId);
    size_t cMessages = 0;
    const ORV_MESSAGE* pTable = OrvGetMessageTable(&cMessages);
    ASSERT_EQ(byId.size(), cMessages);
    size_t i = 0;
    for (const auto& [dwId, m] : byId) {
        SCOPED_TRACE(orvtest::HexCode(dwId));
        EXPECT_EQ(dwId, pTable[i].dwId);
        EXPECT_EQ(m.symbolicName, Narrow(pTable[i].pszSymbolicName));
        EXPECT_EQ(m.text, Narrow(pTable[i].pszText));
        ++i;
    }
}

// ---- Rendering ----------------------------------------------------------------------------

// The text a viewer shows: the table's text with %1..%4 replaced by the samples and %r by a
// carriage return, written out independently of the renderer.
std::u16string ExpectedRendering(std::u16string text, const std::vector<std::u16string>& samples)
{
    std::u16string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == u'%' && i + 1 < text.size()) {
            char16_t c = text[i + 1];
            if (c >= u'1' && c <= u'4') {
                out += samples[static_cast<size_t>(c - u'1')];
                ++i;
                continue;
            }
            if (c == u'r') {
                out += u'\r';
                ++i;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

TEST(MessageTableTest, EveryMessageRendersWithSampleStringsAsItsTextSays)
{
    const std::vector<std::u16string> samples = {u"{6a06b0b5-00e8-44b1-99f0-55fe420b2277}",
                                                 u"12000", u"LUN-SERIAL-0001", u"\\\\?\\scsi#disk"};
    for (const Expected& e : kTable) {
        const ORV_MESSAGE* pMessage = OrvFindMessage(e.dwId);
        ASSERT_NE(nullptr, pMessage) << orvtest::HexCode(e.dwId);
        EXPECT_EQ(ExpectedRendering(e.text, samples), RenderMessage(pMessage->pszText, samples))
            << orvtest::HexCode(e.dwId);
    }
}

TEST(MessageTableTest, CommitFailureRendersLineByLine)
{
    const ORV_MESSAGE* pMessage = OrvFindMessage(ORVPROV_EVENT_COMMIT_FAILED);
    ASSERT_NE(nullptr, pMessage);
    EXPECT_EQ(u"Verdane VSS hardware provider failed in CommitSnapshots method "
              u"[SnapshotSetId={11111111-2222-3333-4444-555555555555}].\r\n"
              u"Tessera failed to create snapshot.\r\r\n"
              u"Please check Tessera event logs.\r\r\n"
              u"\r\r\n"
              u"The data is the error code.\r\n",
              RenderMessage(pMessage->pszText, {u"{11111111-2222-3333-4444-555555555555}"}));
}

} // namespace
