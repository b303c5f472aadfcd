// The program's binary resources: what it registered stands in for the resources of its image.
#include "pal/palresource.h"
#include "pal/src/base/internal.h"

#include <map>
#include <mutex>
#include <new>
#include <string>
#include <utility>

namespace {

struct CResourceData
{
    const BYTE* m_pData;
    DWORD m_cbData;
};

std::mutex g_resourceLock;
// Keyed by the type folded to upper case, as resource type names ignore case.
std::map<std::pair<std::u16string, UINT>, CResourceData> g_resources;

std::u16string FoldType(std::u16string_view type)
{
    std::u16string folded(type);
    for (char16_t& c : folded) {
        if (c >= u'a' && c <= u'z')
            c = static_cast<char16_t>(c - u'a' + u'A');
    }
    return folded;
}

} // namespace

void PalRegisterResource(LPCWSTR pszType, UINT uID, const void* pData, DWORD cbData)
{
    try {
        std::pair key(FoldType(pszType), uID);
        std::lock_guard lock(g_resourceLock);
        if (pData == nullptr)
            g_resources.erase(key);
        else
            g_resources[key] = CResourceData{static_cast<const BYTE*>(pData), cbData};
    } catch (const std::bad_alloc&) {
        // The resource stays unregistered: loading it then fails as for a missing one.
    }
}

namespace pal::detail {

bool FindRegisteredResource(std::u16string_view type, UINT uID, const BYTE** ppData, DWORD* pcbData)
{
    std::lock_guard lock(g_resourceLock);
    auto it = g_resources.find(std::pair(FoldType(type), uID));
    if (it == g_resources.end())
        return false;
    *ppData = it->second.m_pData;
    *pcbData = it->second.m_cbData;
    return true;
}

} // namespace pal::detail
