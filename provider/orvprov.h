// The provider's own COM identity: its class and the custom interface that its type library
// describes.
#pragma once

#include "pal/guiddef.h"
#include "pal/oleauto.h"
#include "pal/unknwn.h"
#include "pal/uuidof.h"

inline constexpr CLSID CLSID_OrvaneHardwareProvider = {
    0xC7F1D659, 0x6F48, 0x45AA, {0x93, 0xD2, 0xD9, 0x94, 0x14, 0xEA, 0x51, 0x90}};
inline constexpr IID IID_IOrvaneHardwareProvider = {
    0x8B8069D5, 0xCD33, 0x4E9D, {0xAF, 0x11, 0xBD, 0x38, 0x75, 0x97, 0x6A, 0x3F}};

interface IOrvaneHardwareProvider : public IUnknown
{
    // Slot 3. Neither argument is kept.
    STDMETHOD(SetInternalSnapshotName)(GUID* pguidVssSnapshotId, BSTR bstrSnapshotName) PURE;

protected:
    ~IOrvaneHardwareProvider() = default;
};

PAL_DEFINE_UUIDOF(IOrvaneHardwareProvider, IID_IOrvaneHardwareProvider);
