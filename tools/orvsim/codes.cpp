#include "codes.h"

#include "store/tessera.h"

#include "pal/vss.h"

#include <cstdio>
#include <iostream>
#include <map>

namespace orvsim {

std::string Hex(HRESULT hr)
{
    char sz[16];
    std::snprintf(sz, sizeof(sz), "0x%08X", static_cast<DWORD>(hr));
    return sz;
}

int FailHr(const std::string& what, HRESULT hr)
{
    std::cerr << "ERROR: " << what << " (" << Hex(hr) << ").\n";
    return 1;
}

bool ParseCode(const std::string& text, HRESULT* phr)
{
    static const std::map<std::string, HRESULT> kNames = {
        {"E_FAIL", E_FAIL},
        {"E_ACCESSDENIED", E_ACCESSDENIED},
        {"E_OUTOFMEMORY", E_OUTOFMEMORY},
        {"E_INVALIDARG", E_INVALIDARG},
        {"E_UNEXPECTED", E_UNEXPECTED},
        {"E_POINTER", E_POINTER},
        {"RPC_E_DISCONNECTED", RPC_E_DISCONNECTED},
        {"RPC_E_SERVERFAULT", RPC_E_SERVERFAULT},
        {"CO_E_OBJNOTCONNECTED", CO_E_OBJNOTCONNECTED},
        {"TESSERA_E_BACKUP_SNAPSHOT_UNSUPPORTED", TESSERA_E_BACKUP_SNAPSHOT_UNSUPPORTED},
        {"VSS_E_PROVIDER_VETO", VSS_E_PROVIDER_VETO},
        {"VSS_E_HOLD_WRITES_TIMEOUT", VSS_E_HOLD_WRITES_TIMEOUT},
        {"VSS_E_FLUSH_WRITES_TIMEOUT", VSS_E_FLUSH_WRITES_TIMEOUT},
        {"VSS_E_WRITERERROR_RETRYABLE", VSS_E_WRITERERROR_RETRYABLE},
        {"VSS_E_WRITERERROR_NONRETRYABLE", VSS_E_WRITERERROR_NONRETRYABLE},
        {"VSS_E_WRITERERROR_TIMEOUT", VSS_E_WRITERERROR_TIMEOUT},
    };
    auto it = kNames.find(text);
    if (it != kNames.end()) {
        *phr = it->second;
        return true;
    }
    try {
        size_t cchUsed = 0;
        unsigned long long value = std::stoull(text, &cchUsed, 0);
        if (cchUsed != text.size() || value > 0xFFFFFFFFull)
            return false;
        *phr = static_cast<HRESULT>(static_cast<DWORD>(value));
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace orvsim
