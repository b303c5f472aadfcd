// The transportable set's description in a backup components document, read back field for
// field, the documents an import refuses, and the names a VSS fault rule may have.
#include "sim/vss/backupdocument.h"
#include "sim/vss/vsssim.h"
#include "tests/support/paltest.h"

#include <gtest/gtest.h>

namespace {

using VssDocumentTest = orvtest::PalTest;

TEST_F(VssDocumentTest, DescriptionReadsBackAsWritten)
{
    const vsssim::ShadowCopyInfo kCopies[] = {
        {{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}},
         {0xA, 0, 0, {0}},
         {0xB, 0, 0, {0}},
         0x400029,
         0x410029,
         u"C:\\mnt\\\"a&b<c>\\",
         u"",
         u"",
         133000000000000000LL,
         std::string("\0\1\xff", 3),
         "target",
         u""},
        {{9, 0, 0, {0}},
         {0xA, 0, 0, {0}},
         {0xB, 0, 0, {0}},
         0x400029,
         0x410029,
         u"E:\\",
         u"",
         u"",
         1,
         "",
         std::string(300, 'x'),
         u""},
    };
    std::vector<vsssim::ShadowCopyInfo> copies;
    ASSERT_HR(S_OK, vsssim::detail::ReadBackupComponentsDocument(
                        vsssim::detail::WriteBackupComponentsDocument({kCopies[0], kCopies[1]}),
                        &copies));
    ASSERT_EQ(2u, copies.size());
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_TRUE(IsEqualGUID(kCopies[i].snapshotId, copies[i].snapshotId));
        EXPECT_TRUE(IsEqualGUID(kCopies[i].setId, copies[i].setId));
        EXPECT_TRUE(IsEqualGUID(kCopies[i].providerId, copies[i].providerId));
        EXPECT_EQ(kCopies[i].lContext, copies[i].lContext);
        EXPECT_EQ(kCopies[i].lAttributes, copies[i].lAttributes);
        EXPECT_EQ(kCopies[i].originalVolume, copies[i].originalVolume);
        EXPECT_EQ(kCopies[i].tsCreation, copies[i].tsCreation);
        EXPECT_EQ(kCopies[i].sourceLun, copies[i].sourceLun);
        EXPECT_EQ(kCopies[i].targetLun, copies[i].targetLun);
    }
}

TEST_F(VssDocumentTest, RefusedDocumentsAndRuleNames)
{
    for (const char* psz :
         {"", "<BACKUP_COMPONENTS x=\"1\"></BACKUP_COMPONENTS>",
          "<BACKUP_COMPONENTS a=\"\"><SNAPSHOT_SET_DESCRIPTION snapshotSetId=\"{x}\""
          " context=\"1\"></SNAPSHOT_SET_DESCRIPTION></BACKUP_COMPONENTS>"}) {
        VSS_ID setId = {1, 0, 0, {0}};
        EXPECT_HR(VSS_E_INVALID_XML_DOCUMENT, vsssim::ImportShadowCopySet(psz, &setId));
        EXPECT_TRUE(IsEqualGUID(GUID_NULL, setId));
    }
    for (const char* psz : {"Writer:Freeze", "Call:LocateLuns", "Kill:Writer:Thaw", "HoldWrites",
                            "QueryProviders", "Kill:OnLunEmpty"})
        EXPECT_HR(S_OK, vsssim::SetFault(psz, E_FAIL, 1)) << psz;
    for (const char* psz :
         {"Writer:Commit", "Call:Writer:Freeze", "Kill:HoldWrites", "Call:", "CommitSnapshots"})
        EXPECT_HR(E_INVALIDARG, vsssim::SetFault(psz, E_FAIL, 1)) << psz;
    std::vector<vsssim::FaultRule> rules;
    ASSERT_HR(S_OK, vsssim::ListFaults(&rules));
    ASSERT_EQ(6u, rules.size());
    EXPECT_EQ("Call:LocateLuns", rules[0].name);
    EXPECT_EQ(1, rules[0].lRemaining);
}

} // namespace
