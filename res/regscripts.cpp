// The keys of the program's registry scripts.
#include "res/regscripts.h"

#define ORV_APPID W("{6AF5BA0B-5FE5-4B79-9723-14C9C3ECB16C}")
#define ORV_CLSID W("{C7F1D659-6F48-45AA-93D2-D99414EA5190}")
#define ORV_LIBID W("{3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}")
#define ORV_CLASS_NAME W("OrvaneHardwareProvider Class")
#define ORV_PROGID W("Orvprov.OrvaneHardwareProvider.1")
#define ORV_VI_PROGID W("Orvprov.OrvaneHardwareProvider")

namespace {

const REG_SCRIPT_KEY kAppIdScript[] = {
    {W("AppID"), REG_SCRIPT_NOREMOVE, nullptr, nullptr, nullptr},
    {W("AppID\\") ORV_APPID, REG_SCRIPT_REMOVE, W("orvprov"), nullptr, nullptr},
    {W("AppID\\orvprov.EXE"), REG_SCRIPT_REMOVE, nullptr, W("AppID"), ORV_APPID},
};

const REG_SCRIPT_KEY kProviderScript[] = {
    {ORV_PROGID, REG_SCRIPT_REMOVE, ORV_CLASS_NAME, nullptr, nullptr},
    {ORV_PROGID W("\\CLSID"), REG_SCRIPT_REMOVE, ORV_CLSID, nullptr, nullptr},
    {ORV_VI_PROGID, REG_SCRIPT_REMOVE, ORV_CLASS_NAME, nullptr, nullptr},
    {ORV_VI_PROGID W("\\CLSID"), REG_SCRIPT_REMOVE, ORV_CLSID, nullptr, nullptr},
    {ORV_VI_PROGID W("\\CurVer"), REG_SCRIPT_REMOVE, ORV_PROGID, nullptr, nullptr},
    {W("CLSID"), REG_SCRIPT_NOREMOVE, nullptr, nullptr, nullptr},
    {W("CLSID\\") ORV_CLSID, REG_SCRIPT_FORCEREMOVE, ORV_CLASS_NAME, W("AppID"), ORV_APPID},
    {W("CLSID\\") ORV_CLSID W("\\ProgID"), REG_SCRIPT_REMOVE, ORV_PROGID, nullptr, nullptr},
    {W("CLSID\\") ORV_CLSID W("\\VersionIndependentProgID"), REG_SCRIPT_REMOVE, ORV_VI_PROGID,
     nullptr, nullptr},
    {W("CLSID\\") ORV_CLSID W("\\Programmable"), REG_SCRIPT_FORCEREMOVE, nullptr, nullptr, nullptr},
    {W("CLSID\\") ORV_CLSID W("\\LocalServer32"), REG_SCRIPT_REMOVE, REG_SCRIPT_MODULE, nullptr,
     nullptr},
    {W("CLSID\\") ORV_CLSID W("\\TypeLib"), REG_SCRIPT_REMOVE, ORV_LIBID, nullptr, nullptr},
};

template <size_t N>
const REG_SCRIPT_KEY* Script(const REG_SCRIPT_KEY (&keys)[N], size_t* pcKeys)
{
    *pcKeys = N;
    return keys;
}

} // namespace

const REG_SCRIPT_KEY* FindRegistryScript(UINT nResId, size_t* pcKeys)
{
    switch (nResId) {
    case IDR_ORVPROV:
        return Script(kAppIdScript, pcKeys);
    case IDR_ORVANEHARDWAREPROVIDER:
        return Script(kProviderScript, pcKeys);
    default:
        *pcKeys = 0;
        return nullptr;
    }
}
