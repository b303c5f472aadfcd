// Arbitrary VDS LUN records, built as VSS hands them over, through the trace dump and the
// provider's interconnect rewrite. Besides the sanitizers' findings (reads past a count, leaks)
// it checks that the dump writes exactly when the level asks for it and that the rewrite
// leaves one complete SCSI interconnect or none.
#include "diag/trace.h"
#include "pal/palcontrol.h"
#include "pal/winerror.h"
#include "provider/interconnect.h"
#include "provider/lundump.h"
#include "tests/support/lunbuilder.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void Check(bool fCondition)
{
    if (!fCondition)
        std::abort();
}

std::optional<std::string> MaybeBytes(FuzzedDataProvider& fdp)
{
    if (!fdp.ConsumeBool())
        return std::nullopt;
    return fdp.ConsumeRandomLengthString(64);
}

// A NUL-free narrow string or none.
const char* MaybeText(FuzzedDataProvider& fdp, std::string& storage)
{
    if (!fdp.ConsumeBool())
        return nullptr;
    storage = fdp.ConsumeRandomLengthString(32);
    storage = storage.substr(0, storage.find('\0'));
    return storage.c_str();
}

std::u16string WideText(FuzzedDataProvider& fdp)
{
    std::string bytes = fdp.ConsumeRandomLengthString(64);
    std::u16string text;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        char16_t ch = static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) |
                                            (static_cast<uint8_t>(bytes[i + 1]) << 8));
        if (ch == 0)
            break;
        text.push_back(ch);
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool fInitialised = [] {
        pal::CaptureDebugOutput(true);
        return true;
    }();
    (void)fInitialised;
    FuzzedDataProvider fdp(data, size);

    std::string vendor, product, revision, serial;
    orvtest::CLunBuilder builder;
    builder.Version(fdp.ConsumeIntegral<ULONG>())
        .DeviceType(fdp.ConsumeIntegral<BYTE>(), fdp.ConsumeIntegral<BYTE>())
        .CommandQueueing(fdp.ConsumeIntegral<BOOL>())
        .BusType(static_cast<VDS_STORAGE_BUS_TYPE>(fdp.ConsumeIntegralInRange<int>(0, 0x7f)))
        .VendorId(MaybeText(fdp, vendor))
        .ProductId(MaybeText(fdp, product))
        .ProductRevision(MaybeText(fdp, revision))
        .SerialNumber(MaybeText(fdp, serial))
        .DescriptorVersion(fdp.ConsumeIntegral<ULONG>());
    GUID signature;
    std::string guidBytes = fdp.ConsumeBytesAsString(sizeof(GUID));
    guidBytes.resize(sizeof(GUID));
    std::memcpy(&signature, guidBytes.data(), sizeof(GUID));
    builder.DiskSignature(signature);
    for (int i = fdp.ConsumeIntegralInRange(0, 4); i > 0; --i)
        builder.AddIdentifier(
            static_cast<VDS_STORAGE_IDENTIFIER_CODE_SET>(fdp.ConsumeIntegralInRange(0, 3)),
            static_cast<VDS_STORAGE_IDENTIFIER_TYPE>(fdp.ConsumeIntegralInRange(0, 8)),
            fdp.ConsumeRandomLengthString(64));
    for (int i = fdp.ConsumeIntegralInRange(0, 4); i > 0; --i) {
        auto addressType =
            static_cast<VDS_INTERCONNECT_ADDRESS_TYPE>(fdp.ConsumeIntegralInRange(0, 5));
        std::optional<std::string> port = MaybeBytes(fdp);
        builder.AddInterconnect(addressType, port, MaybeBytes(fdp));
    }
    DWORD dwLevel = fdp.ConsumeIntegralInRange<DWORD>(0, 4);
    ULONG ulBuildFailAt = fdp.ConsumeIntegralInRange<ULONG>(0, 3);
    ULONG ulRewriteFailAt = fdp.ConsumeIntegralInRange<ULONG>(0, 3);
    std::u16string path1 = WideText(fdp);
    std::u16string path2 = WideText(fdp);

    TraceInit(dwLevel, nullptr, nullptr, 0);
    pal::TakeDebugOutput();

    VDS_LUN_INFORMATION lun;
    pal::FailTaskAllocAt(ulBuildFailAt);
    bool fBuilt = builder.Build(lun);
    pal::FailTaskAllocAt(0);
    if (!fBuilt) {
        // A failed build leaves a zero record behind, which must free cleanly as well.
        orvtest::FreeLunInformation(lun);
        return 0;
    }

    DumpLunInformation(lun, fdp.ConsumeBool() ? W("Source") : nullptr);
    std::string text = pal::TakeDebugOutputText();
    Check(dwLevel >= TRACE_LEVEL_INFO ? text.rfind("LUN Information [0x", 0) == 0 : text.empty());

    pal::FailTaskAllocAt(ulRewriteFailAt);
    HRESULT hr = FixInterconnectAddress(lun, path1.c_str(), path2.c_str());
    pal::FailTaskAllocAt(0);
    Check(lun.m_BusType != VDSBusTypeiScsi);
    if (hr == S_OK) {
        Check(ulRewriteFailAt == 0);
        Check(lun.m_cInterconnects == 1 && lun.m_rgInterconnects);
        const VDS_INTERCONNECT& ic = lun.m_rgInterconnects[0];
        Check(ic.m_addressType == VDS_IA_SCSI);
        Check(ic.m_cbAddress == std::strlen(reinterpret_cast<const char*>(ic.m_pbAddress)) + 1);
        Check(ic.m_cbPort == std::strlen(reinterpret_cast<const char*>(ic.m_pbPort)) + 1);
    } else {
        Check(hr == E_OUTOFMEMORY && ulRewriteFailAt != 0);
        Check(lun.m_cInterconnects == 0 && !lun.m_rgInterconnects);
    }
    DumpLunInformation(lun);
    pal::TakeDebugOutput();
    orvtest::FreeLunInformation(lun);
    return 0;
}
