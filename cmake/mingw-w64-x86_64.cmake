# Cross-compiling for 64-bit Windows with Debian's mingw-w64, posix thread model (std::thread
# and std::mutex, which GoogleTest uses, need it). Programs link the C++ runtime and winpthread
# statically, so that they run under Wine without DLLs beside them.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(ORV_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${ORV_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${ORV_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${ORV_MINGW_PREFIX}-windres)
set(CMAKE_MC_COMPILER ${ORV_MINGW_PREFIX}-windmc)

set(CMAKE_FIND_ROOT_PATH /usr/${ORV_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
