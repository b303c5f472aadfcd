// The provider's machine as the VSS simulation's shadow copy tests need it: the storage
// initialised as well.
#pragma once

#include "sim/storage/storagesim.h"
#include "sim/vss/vsssim.h"
#include "tests/support/providermachine.h"

namespace orvtest {

class ShadowCopyMachineTest : public ProviderMachineTest
{
protected:
    static constexpr LONG kPersistent =
        LONG{VSS_CTX_BACKUP} | VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE;

    void SetUp() override
    {
        ProviderMachineTest::SetUp();
        ASSERT_HR(S_OK, storagesim::InitializeState("", ""));
    }
    static std::vector<vsssim::ShadowCopyInfo> Inventory()
    {
        std::vector<vsssim::ShadowCopyInfo> copies;
        EXPECT_HR(S_OK, vsssim::QueryShadowCopies(&copies));
        return copies;
    }
};

} // namespace orvtest
