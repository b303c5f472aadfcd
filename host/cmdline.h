// The provider program's command line: the switch table, its parser and the exit code rule.
#pragma once

#include "pal/windef.h"

// One switch: its name without the leading '-' or '/', whether it takes a value, and where it
// goes. A switch without a value sets the BOOL its target points at to 1; a switch with a value
// stores in the LPWSTR its target points at the argument that follows it (a pointer into the
// argument vector, not a copy).
struct SWITCH_ENTRY
{
    LPCWSTR pszName;
    BOOL fTakesValue;
    void* pTarget;
};

// Parses argv[1..argc-1] against the table. Arguments that do not start with '-' or '/' are
// collected in *pppExtra (an array with room for argc entries, which the caller may leave to
// the process's end), their count in *pcExtra (stored only when there is at least one; it is
// set to 0 first). Switch names compare exactly, case included. False for an unknown switch, a
// switch whose value is missing, or an array that cannot be allocated.
bool ParseArgs(int argc, LPWSTR* argv, const SWITCH_ENTRY* pTable, int cEntries, LPWSTR** pppExtra,
               int* pcExtra);

// The process exit code for a result: successes and E_OUTOFMEMORY as they are, every other
// failure VSS_E_PROVIDER_VETO.
HRESULT MapExitCode(HRESULT hr);
