// The registry: keys, values, enumeration and change notification, with the Win32 signatures.
//
// Every function returns its Win32 error code (ERROR_SUCCESS on success) and leaves the last
// error alone, as the real advapi32 functions do. The registry lives in one SQLite database
// under the machine root and every call is one transaction: see "Registry" in
// docs/ARCHITECTURE.md.
#pragma once

#include "pal/windef.h"

PAL_DECLARE_HANDLE(HKEY);
using PHKEY = HKEY*;
using LSTATUS = LONG;
using ACCESS_MASK = DWORD;
using REGSAM = ACCESS_MASK;
using PFILETIME = FILETIME*;

// The predefined roots, with their Windows values (sign-extended as the 64-bit SDK does).
// HKEY_CLASSES_ROOT is a view of HKEY_LOCAL_MACHINE\Software\Classes.
#define PAL_PREDEFINED_HKEY(v)                                                                     \
    (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG_PTR>(static_cast<LONG>(v)))))
#define HKEY_CLASSES_ROOT PAL_PREDEFINED_HKEY(0x80000000u)
#define HKEY_CURRENT_USER PAL_PREDEFINED_HKEY(0x80000001u)
#define HKEY_LOCAL_MACHINE PAL_PREDEFINED_HKEY(0x80000002u)

// ---- Access rights ----
#ifndef DELETE
#define DELETE 0x00010000L
#endif
#ifndef READ_CONTROL
#define READ_CONTROL 0x00020000L
#endif
#ifndef WRITE_DAC
#define WRITE_DAC 0x00040000L
#endif
#ifndef WRITE_OWNER
#define WRITE_OWNER 0x00080000L
#endif
#ifndef MAXIMUM_ALLOWED
#define MAXIMUM_ALLOWED 0x02000000L
#endif
#ifndef GENERIC_READ
#define GENERIC_READ 0x80000000L
#define GENERIC_WRITE 0x40000000L
#define GENERIC_EXECUTE 0x20000000L
#define GENERIC_ALL 0x10000000L
#endif

#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_CREATE_SUB_KEY 0x0004
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_NOTIFY 0x0010
#define KEY_CREATE_LINK 0x0020
#define KEY_WOW64_64KEY 0x0100
#define KEY_WOW64_32KEY 0x0200
#define KEY_WOW64_RES 0x0300
// READ_CONTROL | KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY
#define KEY_READ 0x00020019L
// READ_CONTROL | KEY_SET_VALUE | KEY_CREATE_SUB_KEY
#define KEY_WRITE 0x00020006L
#define KEY_EXECUTE KEY_READ
// STANDARD_RIGHTS_REQUIRED | the six key rights
#define KEY_ALL_ACCESS 0x000F003FL

// ---- Value types ----
#define REG_NONE 0
#define REG_SZ 1
#define REG_EXPAND_SZ 2
#define REG_BINARY 3
#define REG_DWORD 4
#define REG_DWORD_LITTLE_ENDIAN 4
#define REG_DWORD_BIG_ENDIAN 5
#define REG_LINK 6
#define REG_MULTI_SZ 7
#define REG_RESOURCE_LIST 8
#define REG_FULL_RESOURCE_DESCRIPTOR 9
#define REG_RESOURCE_REQUIREMENTS_LIST 10
#define REG_QWORD 11
#define REG_QWORD_LITTLE_ENDIAN 11

// ---- Key creation ----
#define REG_OPTION_RESERVED 0x00000000L
#define REG_OPTION_NON_VOLATILE 0x00000000L
#define REG_OPTION_VOLATILE 0x00000001L
#define REG_OPTION_CREATE_LINK 0x00000002L
#define REG_OPTION_BACKUP_RESTORE 0x00000004L
#define REG_OPTION_OPEN_LINK 0x00000008L
#define REG_OPTION_DONT_VIRTUALIZE 0x00000010L

#define REG_CREATED_NEW_KEY 0x00000001L
#define REG_OPENED_EXISTING_KEY 0x00000002L

// ---- Change notification ----
#define REG_NOTIFY_CHANGE_NAME 0x00000001L
#define REG_NOTIFY_CHANGE_ATTRIBUTES 0x00000002L
#define REG_NOTIFY_CHANGE_LAST_SET 0x00000004L
#define REG_NOTIFY_CHANGE_SECURITY 0x00000008L
#define REG_NOTIFY_THREAD_AGNOSTIC 0x10000000L
#define REG_LEGAL_CHANGE_FILTER                                                                    \
    (REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_ATTRIBUTES | REG_NOTIFY_CHANGE_LAST_SET |          \
     REG_NOTIFY_CHANGE_SECURITY | REG_NOTIFY_THREAD_AGNOSTIC)

// ---- Keys ----
// Opening needs no right on hKey; the new handle carries samDesired (generic rights and
// MAXIMUM_ALLOWED are mapped). A null or empty lpSubKey with a predefined hKey returns hKey
// itself. A missing key fails with ERROR_FILE_NOT_FOUND; a key name component longer than 255
// characters with ERROR_INVALID_PARAMETER; a path that starts with '\' or has an empty
// component with ERROR_BAD_PATHNAME.
LSTATUS WINAPI RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired,
                             PHKEY phkResult);
// Creates every missing key of the path (as on Windows, the rights of hKey are not checked) and
// reports REG_CREATED_NEW_KEY or REG_OPENED_EXISTING_KEY. A non-volatile key cannot be created
// under a volatile one (ERROR_CHILD_MUST_BE_VOLATILE). Volatile keys are kept, like the others,
// until the machine root is deleted. Security attributes are ignored.
LSTATUS WINAPI RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved, LPWSTR lpClass,
                               DWORD dwOptions, REGSAM samDesired,
                               const LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult,
                               LPDWORD lpdwDisposition);
// Closing a predefined key succeeds without effect. Closing a handle with armed notifications
// signals their events.
LSTATUS WINAPI RegCloseKey(HKEY hKey);
// Deletes a key without subkeys (ERROR_ACCESS_DENIED when it has some, as Windows does) and
// its values; no right on hKey is needed. An empty lpSubKey deletes hKey's own key. Handles still
// open on a deleted key fail with ERROR_KEY_DELETED. The predefined keys and HKLM\Software\Classes
// cannot be deleted.
LSTATUS WINAPI RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey);
LSTATUS WINAPI RegDeleteKeyExW(HKEY hKey, LPCWSTR lpSubKey, REGSAM samDesired, DWORD Reserved);
// Deletes the key and everything under it; with a null lpSubKey, hKey's values and subkeys but
// not hKey itself, which then needs KEY_ENUMERATE_SUB_KEYS, KEY_QUERY_VALUE and KEY_SET_VALUE.
LSTATUS WINAPI RegDeleteTreeW(HKEY hKey, LPCWSTR lpSubKey);

// ---- Values ----
// Data is stored exactly as given: a string written without its terminator is read back
// without one. A null or empty name is the key's default value. Value names are limited to
// 16383 characters.
LSTATUS WINAPI RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType,
                              const BYTE* lpData, DWORD cbData);
// ERROR_FILE_NOT_FOUND for a missing value. With lpData null, *lpcbData receives the size.
// A buffer too small fails with ERROR_MORE_DATA and *lpcbData receives the size needed.
LSTATUS WINAPI RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType,
                                LPBYTE lpData, LPDWORD lpcbData);
LSTATUS WINAPI RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName);

// ---- Enumeration ----
// Subkeys come in the order of their upper-cased names, values in the order they were first
// set; both orders stay stable while the key is unchanged. ERROR_NO_MORE_ITEMS past the end.
// Name buffers are counted in characters with room for the terminator; one too small fails with
// ERROR_MORE_DATA and leaves the count alone. A data buffer too small fails with
// ERROR_MORE_DATA and *lpcbData receives the size needed.
LSTATUS WINAPI RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName,
                             LPDWORD lpReserved, LPWSTR lpClass, LPDWORD lpcchClass,
                             PFILETIME lpftLastWriteTime);
LSTATUS WINAPI RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcchValueName,
                             LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);
// Name lengths are in characters without the terminator, the longest data in bytes. There is
// no security descriptor: *lpcbSecurityDescriptor receives 0.
LSTATUS WINAPI RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen,
                                LPDWORD lpcbMaxClassLen, LPDWORD lpcValues,
                                LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime);

// ---- Change notification ----
// One notification per call: the first matching change after the call signals hEvent (or
// returns, when fAsynchronous is FALSE) and ends it. Changes made by this process signal at
// once, changes made by another process sharing the machine root within 250 ms. Closing hKey
// signals and ends its notifications; so does deleting the watched key. The ATTRIBUTES and
// SECURITY filters are accepted but never fire (there are no security descriptors). Needs
// KEY_NOTIFY.
LSTATUS WINAPI RegNotifyChangeKeyValue(HKEY hKey, BOOL bWatchSubtree, DWORD dwNotifyFilter,
                                       HANDLE hEvent, BOOL fAsynchronous);
