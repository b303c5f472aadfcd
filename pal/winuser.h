// Formatting, message boxes and string resources of user32.
#pragma once

#include "pal/windef.h"

#include <cstdarg>

// Windows formatting rules: in the W variants %s is a wide and %S a narrow string (the reverse
// in the A variants); output stops at 1024 characters plus the terminator. Returns the number
// of characters written, without the terminator.
int wsprintfW(LPWSTR lpOut, LPCWSTR lpFmt, ...);
int wsprintfA(LPSTR lpOut, LPCSTR lpFmt, ...);
int WINAPI wvsprintfW(LPWSTR lpOut, LPCWSTR lpFmt, va_list arglist);
int WINAPI wvsprintfA(LPSTR lpOut, LPCSTR lpFmt, va_list arglist);

#define MB_OK 0x00000000L
#define MB_OKCANCEL 0x00000001L
#define MB_YESNO 0x00000004L
#define MB_ICONHAND 0x00000010L
#define MB_ICONERROR MB_ICONHAND
#define MB_ICONEXCLAMATION 0x00000030L
#define MB_ICONWARNING MB_ICONEXCLAMATION
#define MB_ICONASTERISK 0x00000040L
#define MB_ICONINFORMATION MB_ICONASTERISK
#define MB_SERVICE_NOTIFICATION 0x00200000L
#define IDOK 1
#define IDCANCEL 2

// No desktop here: the box is written to standard error and answered with IDOK.
int WINAPI MessageBoxW(HWND hWnd, LPCWSTR lpText, LPCWSTR lpCaption, UINT uType);

// Reads the string table the program registered (see pal/palresource.h), as Windows reads an
// image's: only the low word of uID counts, and an id left out of a block of 16 that holds
// another string is an empty string. With cchBufferMax 0, stores a read-only pointer to the
// resource in *(LPWSTR*)lpBuffer and returns its length.
int WINAPI LoadStringW(HINSTANCE hInstance, UINT uID, LPWSTR lpBuffer, int cchBufferMax);

// How wWinMain's window is to be shown; the entry passes SW_SHOWDEFAULT, as a process started
// without STARTF_USESHOWWINDOW receives it.
#define SW_HIDE 0
#define SW_SHOWNORMAL 1
#define SW_NORMAL 1
#define SW_SHOWMINIMIZED 2
#define SW_SHOWMAXIMIZED 3
#define SW_MAXIMIZE 3
#define SW_SHOWNOACTIVATE 4
#define SW_SHOW 5
#define SW_MINIMIZE 6
#define SW_SHOWMINNOACTIVE 7
#define SW_SHOWNA 8
#define SW_RESTORE 9
#define SW_SHOWDEFAULT 10
#define SW_FORCEMINIMIZE 11
