// What `orvsim reg` says: reg.exe's messages, its prompts and the usage of each operation.
#pragma once

#include "pal/windows.h"

#include <string>
#include <string_view>

namespace orvsim::reg {

// Writes "ERROR: <message>" on standard error; returns the exit code 1.
int Fail(std::string_view message);
// The message reg.exe shows for a failed registry call.
int FailStatus(LONG status);
// Writes reg.exe's success line; returns 0.
int Succeed();
// Asks "<question> (Yes/No)? " on standard output and reads the answer; true for yes.
bool Confirm(const std::string& question);
// The cancel message after a "no"; returns 1.
int Cancelled();

extern const char* const kNotFoundMessage;

// Usage texts, printed for /? and shown by --help.
extern const char* const kQueryUsage;
extern const char* const kAddUsage;
extern const char* const kDeleteUsage;

} // namespace orvsim::reg
