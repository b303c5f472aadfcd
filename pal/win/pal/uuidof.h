// Windows: mingw-w64 implements __uuidof(type) with the specialisations of __mingw_uuidof that
// its headers declare for the SDK's interfaces. PAL_DEFINE_UUIDOF pairs one of the program's
// own interfaces with its IID the same way (for the type and for a pointer to it), so that
// __uuidof works for them as MIDL-generated headers make it work.
#pragma once

#include "pal/windef.h"

#include <objbase.h>

#define PAL_DEFINE_UUIDOF(type, iid)                                                               \
    extern "C++" {                                                                                 \
    template <>                                                                                    \
    inline const GUID& __mingw_uuidof<type>()                                                      \
    {                                                                                              \
        return iid;                                                                                \
    }                                                                                              \
    template <>                                                                                    \
    inline const GUID& __mingw_uuidof<type*>()                                                     \
    {                                                                                              \
        return __mingw_uuidof<type>();                                                             \
    }                                                                                              \
    }                                                                                              \
    static_assert(true)
