// BSTR: a length-prefixed, null-terminated UTF-16 string.
#pragma once

#include "pal/windef.h"

using OLECHAR = WCHAR;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;
using BSTR = OLECHAR*;

BSTR WINAPI SysAllocString(const OLECHAR* psz);
BSTR WINAPI SysAllocStringLen(const OLECHAR* strIn, UINT ui);
void WINAPI SysFreeString(BSTR bstrString);
UINT WINAPI SysStringLen(BSTR pbstr);
UINT WINAPI SysStringByteLen(BSTR bstr);
