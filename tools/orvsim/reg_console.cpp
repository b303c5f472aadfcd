// reg.exe's messages and prompts.
#include "reg_console.h"

#include <iostream>

namespace orvsim::reg {

const char* const kNotFoundMessage =
    "The system was unable to find the specified registry key or value.";

const char* const kQueryUsage = R"(REG QUERY KeyName [/v ValueName | /ve] [/s]

  KeyName    ROOTKEY\SubKey, ROOTKEY being HKLM, HKCU or HKCR (or HKEY_LOCAL_MACHINE,
             HKEY_CURRENT_USER, HKEY_CLASSES_ROOT)
  /v         the value named ValueName
  /ve        the default (unnamed) value
  /s         every subkey and value below the key, recursively

Examples:
  orvsim reg query HKLM\Software\Orvane
  orvsim reg query HKLM\Software\Orvane /v Version
  orvsim reg query HKLM\Software /s
)";

const char* const kAddUsage =
    R"(REG ADD KeyName [/v ValueName | /ve] [/t Type] [/s Separator] [/d Data] [/f]

  KeyName    ROOTKEY\SubKey, ROOTKEY being HKLM, HKCU or HKCR (or the full names)
  /v         the name of the value to add
  /ve        the default (unnamed) value
  /t         REG_SZ (default), REG_MULTI_SZ, REG_EXPAND_SZ, REG_DWORD, REG_QWORD,
             REG_BINARY, REG_NONE or REG_DWORD_BIG_ENDIAN
  /s         the character separating the items of REG_MULTI_SZ data (default \0)
  /d         the data: text, a decimal or 0x hexadecimal number, or hexadecimal bytes
  /f         overwrite an existing value without asking

Without /v and /ve and without /t and /d, only the key is created.

Examples:
  orvsim reg add HKLM\Software\Orvane /v Version /t REG_DWORD /d 3 /f
  orvsim reg add HKLM\Software\Orvane /v Hosts /t REG_MULTI_SZ /d a\0b
)";

const char* const kDeleteUsage = R"(REG DELETE KeyName [/v ValueName | /ve | /va] [/f]

  KeyName    ROOTKEY\SubKey, ROOTKEY being HKLM, HKCU or HKCR (or the full names)
  /v         the value named ValueName
  /ve        the default (unnamed) value
  /va        every value of the key (its subkeys stay)
  /f         delete without asking

Without /v, /ve and /va the key is deleted with everything below it.

Examples:
  orvsim reg delete HKLM\Software\Orvane /v Version /f
  orvsim reg delete HKLM\Software\Orvane /f
)";

int Fail(std::string_view message)
{
    std::cerr << "ERROR: " << message << '\n';
    return 1;
}

int FailStatus(LONG status)
{
    switch (status) {
    case ERROR_FILE_NOT_FOUND:
        return Fail(kNotFoundMessage);
    case ERROR_ACCESS_DENIED:
        return Fail("Access is denied.");
    case ERROR_KEY_DELETED:
        return Fail("Illegal operation attempted on a registry key that has been marked for "
                    "deletion.");
    case ERROR_BAD_PATHNAME:
    case ERROR_INVALID_PARAMETER:
        return Fail("Invalid key name.");
    default:
        return Fail("The registry operation failed with error " + std::to_string(status) + ".");
    }
}

int Succeed()
{
    std::cout << "The operation completed successfully.\n";
    return 0;
}

bool Confirm(const std::string& question)
{
    std::cout << question << " (Yes/No)? " << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer))
        return false;
    return !answer.empty() && (answer[0] == 'y' || answer[0] == 'Y');
}

int Cancelled()
{
    std::cerr << "The operation was canceled by the user.\n";
    return 1;
}

} // namespace orvsim::reg
