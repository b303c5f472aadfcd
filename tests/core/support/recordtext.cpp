#include "tests/core/support/recordtext.h"

#include "pal/combaseapi.h"
#include "pal/palcontrol.h"

#include <cstring>

namespace orvtest {

std::string FieldText(LPCWSTR psz)
{
    return psz ? pal::Utf16ToUtf8(psz) : std::string("<null>");
}

std::vector<std::string> FieldTexts(const std::vector<LPCWSTR>& fields)
{
    std::vector<std::string> texts;
    for (LPCWSTR psz : fields)
        texts.push_back(FieldText(psz));
    return texts;
}

std::vector<LPCWSTR> StringFields(const CSnapshotEntry& entry)
{
    return {entry.Filer(),
            entry.SourceLunVendorId(),
            entry.SourceLunProductId(),
            entry.SourceLunProductRevision(),
            entry.SourceSerialNo(),
            entry.SourcePath(),
            entry.SourceDrive(),
            entry.TargetLunVendorId(),
            entry.TargetLunProductId(),
            entry.TargetLunProductRevision(),
            entry.TargetLunSerialNo(),
            entry.TargetLunPath(),
            entry.TargetLunPath2()};
}

std::vector<LPCWSTR> StringFields(const CTargetLunInfo& target)
{
    return {target.VendorId(),     target.ProductId(),      target.ProductRevision(),
            target.SerialNo(),     target.TargetLunPath1(), target.TargetLunPath2(),
            target.DeviceId(),     target.SnapshotName(),   target.FilerName(),
            target.SourceLunPath()};
}

LPWSTR TaskString(const std::string& text)
{
    std::u16string wide = pal::Utf8ToUtf16(text);
    LPWSTR psz = static_cast<LPWSTR>(CoTaskMemAlloc((wide.size() + 1) * sizeof(WCHAR)));
    if (psz)
        std::memcpy(psz, wide.c_str(), (wide.size() + 1) * sizeof(WCHAR));
    return psz;
}

CSnapshotEntry* NewFullEntry(const std::string& tag)
{
    CSnapshotEntry* pEntry = new CSnapshotEntry;
    pEntry->SetSnapshotId({0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}});
    pEntry->SetFiler(TaskString(tag + "filer"));
    pEntry->SetSnapshotAttr(SNAPSHOT_ATTR_TXF_RECOVERY);
    std::u16string s[6];
    const char* names[6] = {"vendor", "product", "revision", "serial", "path", "drive"};
    for (int i = 0; i < 6; ++i)
        s[i] = pal::Utf8ToUtf16(tag + names[i]);
    pEntry->SetSourceLunInfo(s[0].c_str(), s[1].c_str(), s[2].c_str(), s[3].c_str(), s[4].c_str(),
                             s[5].c_str());
    CTargetLunInfo target;
    target.SetVendorId(TaskString(tag + "tvendor"));
    target.SetProductId(TaskString(tag + "tproduct"));
    target.SetProductRevision(TaskString(tag + "trevision"));
    target.SetSerialNo(TaskString(tag + "tserial"));
    target.SetTargetLunPath1(TaskString(tag + "tpath1"));
    target.SetTargetLunPath2(TaskString(tag + "tpath2"));
    pEntry->TakeTargetLunInfo(target);
    return pEntry;
}

CTargetLunInfo* NewFullTarget(const std::string& tag)
{
    CTargetLunInfo* pTarget = new CTargetLunInfo;
    pTarget->SetVendorId(TaskString(tag + "vendor"));
    pTarget->SetProductId(TaskString(tag + "product"));
    pTarget->SetProductRevision(TaskString(tag + "revision"));
    pTarget->SetSerialNo(TaskString(tag + "serial"));
    pTarget->SetTargetLunPath1(TaskString(tag + "path1"));
    pTarget->SetTargetLunPath2(TaskString(tag + "path2"));
    pTarget->SetDeviceId(TaskString(tag + "device"));
    pTarget->SetSnapshotName(TaskString(tag + "snapshot"));
    pTarget->SetFilerNameAndSourceLunPath(TaskString(tag + "filer"), TaskString(tag + "source"));
    return pTarget;
}

} // namespace orvtest
