// The program's type library (res/orvprov.idl), compiled by widl and compiled in by
// cmake/embed-binary.cmake. On Windows it is resource TYPELIB 1 of the image instead.
#pragma once

#include "pal/palresource.h"
#include "pal/windef.h"

#include <cstddef>

// The resource type and id under which the program carries its type library.
#define ORV_TYPELIB_RESOURCE_TYPE W("TYPELIB")
#define ORV_TYPELIB_RESOURCE_ID 1

// Makes the library the program's resource TYPELIB 1, which LoadTypeLib reads for the
// program's own file (GetModuleFileNameW(NULL)). The program's entry calls this beside
// OrvRegisterStringTable, before anything registers the server.
void OrvRegisterTypeLib();

// The generated data behind the function above: the .tlb file's bytes.
extern const BYTE g_rgbOrvTypeLib[];
extern const size_t g_cbOrvTypeLib;
