// OLE's string types: OLECHAR and BSTR (a length-prefixed, null-terminated UTF-16 string).
#pragma once

#include "pal/windef.h"

using OLECHAR = WCHAR;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;
using BSTR = OLECHAR*;
