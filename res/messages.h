// The program's message table, compiled in from res/orvmsg.mc by res/gen/resgen.cpp. The ids
// (ORVPROV_E_* codes and ORVPROV_EVENT_* event ids) are in the generated res/orvmsg.h.
#pragma once

#include "pal/windef.h"
#include "res/orvmsg.h"

struct ORV_MESSAGE
{
    DWORD dwId;              // the full 32-bit message id
    WORD wLanguage;          // 0x409 (English, United States)
    LPCWSTR pszSymbolicName; // the name res/orvmsg.h gives the id
    // The text as the message table holds it: every line ending in CR LF, insertion strings
    // (%1 ...) and escapes (%r ...) not yet applied; see res/msgrender.h.
    LPCWSTR pszText;
};

// Every entry, in ascending id order; *pcMessages receives the count.
const ORV_MESSAGE* OrvGetMessageTable(size_t* pcMessages);
// The entry of `dwId`, or nullptr when the table has none.
const ORV_MESSAGE* OrvFindMessage(DWORD dwId);

// The generated data behind the two functions above.
extern const ORV_MESSAGE g_rgOrvMessages[];
extern const size_t g_cOrvMessages;
