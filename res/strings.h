// The program's string table, compiled in from res/orvprov.rc by res/gen/resgen.cpp.
#pragma once

#include "pal/palresource.h"
#include "pal/windef.h"
#include "res/resource.h"

// Every entry, in ascending id order; *pcStrings receives the count.
const PAL_STRING_RESOURCE* OrvGetStringTable(size_t* pcStrings);

// Makes this table the one LoadStringW reads. On Windows the table is part of the image; here
// the program's entry calls this before it loads any string.
void OrvRegisterStringTable();

// The generated data behind the functions above.
extern const PAL_STRING_RESOURCE g_rgOrvStrings[];
extern const size_t g_cOrvStrings;
