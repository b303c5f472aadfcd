# The header windmc writes defines the facility and severity names of the .mc file, which the
# SDK's winerror.h defines too (FACILITY_ITF as 4, windmc as 0x4): a redefinition warning, an
# error with -Werror. Each such #define is kept only where the SDK has not made it.
#   cmake -DHEADER=path -P windmc-header.cmake
file(READ "${HEADER}" text)
string(REGEX REPLACE "#define ((FACILITY|STATUS_SEVERITY)_[A-Z_]+) ([^\n]*)"
       "#ifndef \\1\n#define \\1 \\3\n#endif" text "${text}")
file(WRITE "${HEADER}" "${text}")
