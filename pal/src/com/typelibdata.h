// What the pal reads of a type library, shared by loading (typelib.cpp, msft.cpp) and
// registration (typelibreg.cpp).
#pragma once

#include "pal/oaidl.h"

#include <optional>
#include <string>
#include <vector>

namespace pal::detail {

// One type description: a coclass, an interface, a record, ...
struct CTypeDescription
{
    TYPEKIND m_kind = TKIND_ENUM;
    WORD m_wFlags = 0; // TYPEFLAGS
    GUID m_guid = GUID_NULL;
    std::u16string m_name;
    std::optional<std::u16string> m_doc;
    DWORD m_dwHelpContext = 0;
};

struct CTypeLibraryData
{
    TLIBATTR m_attr{};
    std::optional<std::u16string> m_name;
    std::optional<std::u16string> m_doc;
    std::optional<std::u16string> m_helpFile;
    DWORD m_dwHelpContext = 0;
    std::vector<CTypeDescription> m_types;
};

// Reads a library in the MSFT format (MIDL's and widl's); false when the bytes are not one or
// point outside themselves. Throws std::bad_alloc.
bool ParseMsftTypeLib(const BYTE* pData, size_t cbData, CTypeLibraryData* pLib);

// The data of a library that LoadTypeLib(Ex) made; null for any other ITypeLib.
const CTypeLibraryData* TypeLibraryDataOf(ITypeLib* ptlib);

} // namespace pal::detail
