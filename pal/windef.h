// Basic Windows types with their Windows sizes on a 64-bit (LLP64) build.
#pragma once

#include <cstddef>
#include <cstdint>

#define WINAPI
#define CALLBACK
#define STDMETHODCALLTYPE
#define APIENTRY

// Wide string literal: UTF-16 on every platform.
#define PAL_CONCAT_(a, b) a##b
#define W(s) PAL_CONCAT_(u, s)

using BOOL = int32_t;
using BOOLEAN = uint8_t;
using BYTE = uint8_t;
using UCHAR = uint8_t;
using CHAR = char;
using WCHAR = char16_t;
using SHORT = int16_t;
using USHORT = uint16_t;
using WORD = uint16_t;
using INT = int32_t;
using UINT = uint32_t;
using LONG = int32_t;
using ULONG = uint32_t;
using DWORD = uint32_t;
using LONGLONG = int64_t;
using ULONGLONG = uint64_t;
using DWORDLONG = uint64_t;
using DWORD64 = uint64_t;
using ULONG64 = uint64_t;
using INT_PTR = intptr_t;
using UINT_PTR = uintptr_t;
using LONG_PTR = intptr_t;
using ULONG_PTR = uintptr_t;
using DWORD_PTR = ULONG_PTR;
using SIZE_T = ULONG_PTR;
using HRESULT = LONG;
using LCID = DWORD;

using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPBYTE = BYTE*;
using PBYTE = BYTE*;
using LPDWORD = DWORD*;
using PDWORD = DWORD*;
using PLONG = LONG*;
using PULONG = ULONG*;
using LPLONG = LONG*;
using LPBOOL = BOOL*;

using LPSTR = CHAR*;
using PSTR = CHAR*;
using LPCSTR = const CHAR*;
using PCSTR = const CHAR*;
using LPWSTR = WCHAR*;
using PWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using PCWSTR = const WCHAR*;
using LPCCH = const CHAR*;
using LPCWCH = const WCHAR*;

using HANDLE = void*;
using PHANDLE = HANDLE*;
using LPHANDLE = HANDLE*;

// Distinct pointer types per handle kind, as STRICT Windows builds declare them.
#define PAL_DECLARE_HANDLE(name)                                                                   \
    struct name##__                                                                                \
    {                                                                                              \
        int unused;                                                                                \
    };                                                                                             \
    using name = name##__*
PAL_DECLARE_HANDLE(HINSTANCE);
PAL_DECLARE_HANDLE(HWND);
using HMODULE = HINSTANCE;

// Windows declares INT_PTR (WINAPI *)(); the generic void (*)() converts to any function type
// without a cast-function-type warning, as the callers' casts expect.
using FARPROC = void (*)();

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#define MAX_PATH 260
#define ANYSIZE_ARRAY 1
#define INFINITE 0xFFFFFFFFu
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

#define LOWORD(l) (static_cast<WORD>(static_cast<DWORD_PTR>(l) & 0xffff))
#define HIWORD(l) (static_cast<WORD>((static_cast<DWORD_PTR>(l) >> 16) & 0xffff))
#define LOBYTE(w) (static_cast<BYTE>(static_cast<DWORD_PTR>(w) & 0xff))
#define ARRAYSIZE(a) (sizeof(a) / sizeof((a)[0]))
#define UNREFERENCED_PARAMETER(p) ((void)(p))

struct SYSTEMTIME
{
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};
using PSYSTEMTIME = SYSTEMTIME*;
using LPSYSTEMTIME = SYSTEMTIME*;
static_assert(sizeof(SYSTEMTIME) == 16);

struct FILETIME
{
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
using LPFILETIME = FILETIME*;
static_assert(sizeof(FILETIME) == 8);

union LARGE_INTEGER {
    struct
    {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};
static_assert(sizeof(LARGE_INTEGER) == 8);

// A security descriptor is opaque to its users: they pass it by pointer.
using PSECURITY_DESCRIPTOR = PVOID;

struct SECURITY_ATTRIBUTES
{
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;
static_assert(sizeof(SECURITY_ATTRIBUTES) == 24);

static_assert(sizeof(LONG) == 4 && sizeof(ULONG) == 4 && sizeof(DWORD) == 4);
static_assert(sizeof(WCHAR) == 2 && sizeof(BOOL) == 4 && sizeof(HRESULT) == 4);
