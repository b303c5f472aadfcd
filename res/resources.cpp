// Look-ups in the compiled-in message and string tables, and the registration of the tables
// and the type library with the pal.
#include "res/messages.h"
#include "res/strings.h"
#include "res/typelib.h"

const ORV_MESSAGE* OrvGetMessageTable(size_t* pcMessages)
{
    *pcMessages = g_cOrvMessages;
    return g_rgOrvMessages;
}

const ORV_MESSAGE* OrvFindMessage(DWORD dwId)
{
    // The generator sorts the table by id.
    size_t lo = 0;
    size_t hi = g_cOrvMessages;
    while (lo < hi) {
        size_t mid = lo + (hi - lo) / 2;
        if (g_rgOrvMessages[mid].dwId < dwId)
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo < g_cOrvMessages && g_rgOrvMessages[lo].dwId == dwId ? &g_rgOrvMessages[lo] : nullptr;
}

const PAL_STRING_RESOURCE* OrvGetStringTable(size_t* pcStrings)
{
    *pcStrings = g_cOrvStrings;
    return g_rgOrvStrings;
}

void OrvRegisterStringTable()
{
    PalRegisterStringTable(g_rgOrvStrings, g_cOrvStrings);
}

void OrvRegisterTypeLib()
{
    PalRegisterResource(ORV_TYPELIB_RESOURCE_TYPE, ORV_TYPELIB_RESOURCE_ID, g_rgbOrvTypeLib,
                        static_cast<DWORD>(g_cbOrvTypeLib));
}
