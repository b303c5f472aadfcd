#include "provider/vendor.h"

#include "pal/crt.h"

BOOL IsOrvaneVendorId(LPCWSTR pszVendorId)
{
    if (!pszVendorId)
        return FALSE;
    return wcscmp(pszVendorId, ORVANE_VENDOR_ID) == 0;
}

BOOL HasOrvaneVendorPrefix(LPCWSTR pszVendorId)
{
    if (!pszVendorId)
        return FALSE;
    // wcsncmp stops at the first terminator, so a shorter id is never read past its end.
    return wcsncmp(pszVendorId, ORVANE_VENDOR_ID, ORVANE_VENDOR_ID_CCH) == 0;
}
