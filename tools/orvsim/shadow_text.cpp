// The words and forms of vssadmin and diskshadow for shadow copies.
#include "shadow_text.h"

#include "pal/objbase.h"
#include "pal/palcontrol.h"
#include "pal/paleventlog.h"

#include <cctype>
#include <cstdio>
#include <ctime>

namespace orvsim {

namespace {

// A VSS_VOLSNAP_ATTR_* bit and the words each tool prints for it.
struct AttributeWords
{
    LONG lBit;
    const char* pszVssadmin;
    const char* pszDiskshadow;
};
// In the order the tools print them.
constexpr AttributeWords kAttributes[] = {
    {VSS_VOLSNAP_ATTR_PERSISTENT, "Persistent", "Persistent"},
    {VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE, "Client-accessible", "Client_Accessible"},
    {VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE, "No auto release", "No_Auto_Release"},
    {VSS_VOLSNAP_ATTR_NO_WRITERS, "No writers", "No_Writers"},
    {VSS_VOLSNAP_ATTR_TRANSPORTABLE, "Transportable", "Transportable"},
    {VSS_VOLSNAP_ATTR_NOT_SURFACED, "Not surfaced", "Not_Surfaced"},
    {VSS_VOLSNAP_ATTR_NOT_TRANSACTED, "Not transacted", "Not_Transacted"},
    {VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED, "Hardware assisted", "Hardware_Assisted"},
    {VSS_VOLSNAP_ATTR_DIFFERENTIAL, "Differential", "Differential"},
    {VSS_VOLSNAP_ATTR_PLEX, "Plex", "Plex"},
    {VSS_VOLSNAP_ATTR_IMPORTED, "Imported", "Imported"},
    {VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY, "Exposed locally", "Exposed_Locally"},
    {VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY, "Exposed remotely", "Exposed_Remotely"},
    {VSS_VOLSNAP_ATTR_NO_AUTORECOVERY, "No auto recovery", "No_Auto_Recovery"},
    {VSS_VOLSNAP_ATTR_AUTORECOVER, "Auto recovered", "Auto_Recover"},
    {VSS_VOLSNAP_ATTR_ROLLBACK_RECOVERY, "Rollback recovery", "Rollback_Recovery"},
};

struct CodeName
{
    HRESULT hr;
    const char* pszName;
};
#define ORV_CODE(code)                                                                             \
    {                                                                                              \
        code, #code                                                                                \
    }
constexpr CodeName kCodes[] = {
    ORV_CODE(E_INVALIDARG),
    ORV_CODE(E_OUTOFMEMORY),
    ORV_CODE(E_ACCESSDENIED),
    ORV_CODE(E_UNEXPECTED),
    ORV_CODE(E_FAIL),
    ORV_CODE(VSS_E_BAD_STATE),
    ORV_CODE(VSS_E_UNEXPECTED),
    ORV_CODE(VSS_E_PROVIDER_ALREADY_REGISTERED),
    ORV_CODE(VSS_E_PROVIDER_NOT_REGISTERED),
    ORV_CODE(VSS_E_PROVIDER_VETO),
    ORV_CODE(VSS_E_PROVIDER_IN_USE),
    ORV_CODE(VSS_E_OBJECT_NOT_FOUND),
    ORV_CODE(VSS_E_VOLUME_NOT_SUPPORTED),
    ORV_CODE(VSS_E_OBJECT_ALREADY_EXISTS),
    ORV_CODE(VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER),
    ORV_CODE(VSS_E_UNEXPECTED_PROVIDER_ERROR),
    ORV_CODE(VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED),
    ORV_CODE(VSS_E_FLUSH_WRITES_TIMEOUT),
    ORV_CODE(VSS_E_HOLD_WRITES_TIMEOUT),
    ORV_CODE(VSS_E_SNAPSHOT_SET_IN_PROGRESS),
    ORV_CODE(VSS_E_UNSUPPORTED_CONTEXT),
    ORV_CODE(VSS_E_INSUFFICIENT_STORAGE),
};
#undef ORV_CODE

// FNV-1a over the text, from a seed of its own for each half of the GUID.
ULONGLONG Hash(const std::string& text, ULONGLONG seed)
{
    ULONGLONG h = seed;
    for (unsigned char c : text) {
        h ^= c;
        h *= 0x100000001B3ULL;
    }
    return h;
}

std::string Words(LONG lAttributes, bool fVssadmin)
{
    // diskshadow names "no auto release" before the others.
    std::string text = !fVssadmin && (lAttributes & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) != 0
                           ? "No_Auto_Release"
                           : "";
    for (const auto& words : kAttributes) {
        if ((lAttributes & words.lBit) == 0)
            continue;
        if (!fVssadmin && words.lBit == VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE)
            continue;
        if (!text.empty())
            text += fVssadmin ? ", " : " ";
        text += fVssadmin ? words.pszVssadmin : words.pszDiskshadow;
    }
    return text;
}

} // namespace

std::string Lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::u16string DriveRoot(const std::string& text)
{
    bool fDrive = (text.size() == 2 || (text.size() == 3 && text[2] == '\\')) &&
                  std::isalpha(static_cast<unsigned char>(text[0])) && text[1] == ':';
    if (!fDrive)
        return u"";
    return {static_cast<char16_t>(std::toupper(static_cast<unsigned char>(text[0]))), u':', u'\\'};
}

std::string VolumeGuidPath(const std::u16string& mountPoint)
{
    std::string key = "volume:" + pal::Utf16ToUtf8(mountPoint);
    ULONGLONG hi = Hash(key, 0xCBF29CE484222325ULL);
    ULONGLONG lo = Hash(key, 0x84222325CBF29CE4ULL);
    GUID guid;
    guid.Data1 = static_cast<DWORD>(hi >> 32);
    guid.Data2 = static_cast<WORD>(hi >> 16);
    guid.Data3 = static_cast<WORD>((hi & 0x0FFF) | 0x1000);
    for (int i = 0; i < 8; ++i)
        guid.Data4[i] = static_cast<BYTE>(lo >> (56 - 8 * i));
    return "\\\\?\\Volume" + GuidText(guid) + "\\";
}

std::string CreationTimeText(VSS_TIMESTAMP ts)
{
    // FILETIME counts 100 ns intervals from 1601, 11644473600 s before the Unix epoch.
    std::time_t t = static_cast<std::time_t>(ts / 10000000LL - 11644473600LL);
    std::tm local = {};
    localtime_r(&t, &local);
    int hour = local.tm_hour % 12 == 0 ? 12 : local.tm_hour % 12;
    char sz[64];
    std::snprintf(sz, sizeof(sz), "%d/%d/%d %d:%02d:%02d %s", local.tm_mon + 1, local.tm_mday,
                  local.tm_year + 1900, hour, local.tm_min, local.tm_sec,
                  local.tm_hour < 12 ? "AM" : "PM");
    return sz;
}

std::string MachineName()
{
    return pal::Utf16ToUtf8(pal::EventLogComputerName());
}

std::string VssCodeName(HRESULT hr)
{
    for (const auto& code : kCodes)
        if (code.hr == hr)
            return code.pszName;
    return "";
}

std::string VssadminType(LONG lContext)
{
    // The type is the context without the attributes a requester may add to it.
    constexpr LONG kAdded = VSS_VOLSNAP_ATTR_TRANSPORTABLE | VSS_VOLSNAP_ATTR_NO_AUTORECOVERY |
                            VSS_VOLSNAP_ATTR_ROLLBACK_RECOVERY;
    switch (lContext & ~kAdded) {
    case VSS_CTX_BACKUP:
    case VSS_VOLSNAP_ATTR_PERSISTENT:
        return "Backup";
    case VSS_CTX_FILE_SHARE_BACKUP:
        return "FileShareBackup";
    case VSS_CTX_NAS_ROLLBACK:
        return "DataVolumeRollback";
    case VSS_CTX_APP_ROLLBACK:
        return "ApplicationRollback";
    case VSS_CTX_CLIENT_ACCESSIBLE:
        return "ClientAccessible";
    case VSS_CTX_CLIENT_ACCESSIBLE_WRITERS:
        return "ClientAccessibleWriters";
    default:
        return "Unknown";
    }
}

std::string VssadminAttributes(LONG lAttributes)
{
    return Words(lAttributes, true);
}

std::string DiskshadowAttributes(LONG lAttributes)
{
    return Words(lAttributes, false);
}

HRESULT QueryProviderRecords(std::vector<ProviderRecord>* pProviders)
{
    pProviders->clear();
    vsssim::CVssCoordinator coordinator;
    HRESULT hr = coordinator.Start();
    if (FAILED(hr))
        return hr;
    IVssAdmin* pAdmin = nullptr;
    hr = CoCreateInstance(CLSID_VSSCoordinator, nullptr, CLSCTX_ALL, IID_IVssAdmin,
                          reinterpret_cast<void**>(&pAdmin));
    if (FAILED(hr))
        return hr;
    IVssEnumObject* pEnum = nullptr;
    hr = pAdmin->QueryProviders(&pEnum);
    pAdmin->Release();
    if (FAILED(hr))
        return hr;
    for (;;) {
        VSS_OBJECT_PROP prop;
        ULONG cFetched = 0;
        hr = pEnum->Next(1, &prop, &cFetched);
        if (FAILED(hr) || cFetched == 0)
            break;
        const VSS_PROVIDER_PROP& p = prop.Obj.Prov;
        pProviders->push_back({p.m_ProviderId, p.m_ClassId, p.m_eProviderType,
                               pal::Utf16ToUtf8(p.m_pwszProviderName),
                               pal::Utf16ToUtf8(p.m_pwszProviderVersion)});
        CoTaskMemFree(p.m_pwszProviderName);
        CoTaskMemFree(p.m_pwszProviderVersion);
    }
    pEnum->Release();
    return FAILED(hr) ? hr : S_OK;
}

std::string ProviderName(const std::vector<ProviderRecord>& providers, const VSS_ID& id)
{
    for (const auto& provider : providers)
        if (provider.providerId == id)
            return provider.name;
    return GuidText(id);
}

} // namespace orvsim
