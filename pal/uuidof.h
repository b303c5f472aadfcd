// Naming an interface's IID from its type: __uuidof(IUnknown) is IID_IUnknown.
//
// Windows compilers attach the IID to the interface type itself; here each interface header
// declares the pairing with PAL_DEFINE_UUIDOF after the interface. Naming the IID of a type
// that has none fails to compile, which is what MSVC does too.
#pragma once

#include "pal/guiddef.h"
#include "pal/oaidl.h"
#include "pal/unknwn.h"

#include <type_traits>

template <class T>
struct PalUuidOf; // no definition: only interfaces with a declared IID have one

#define PAL_DEFINE_UUIDOF(type, iid)                                                               \
    template <>                                                                                    \
    struct PalUuidOf<type>                                                                         \
    {                                                                                              \
        static constexpr const IID& value = iid;                                                   \
    }

// Only the type form of MSVC's operator: __uuidof(IClassFactory).
#define __uuidof(type) (::PalUuidOf<std::remove_cv_t<type>>::value)

PAL_DEFINE_UUIDOF(IUnknown, IID_IUnknown);
PAL_DEFINE_UUIDOF(IErrorInfo, IID_IErrorInfo);
PAL_DEFINE_UUIDOF(ICreateErrorInfo, IID_ICreateErrorInfo);
PAL_DEFINE_UUIDOF(ISupportErrorInfo, IID_ISupportErrorInfo);
