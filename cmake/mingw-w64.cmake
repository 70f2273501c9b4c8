# Cross-builds Kestrel Capture for 64-bit Windows on Debian with mingw-w64 (GCC 12 with
# POSIX threads, mingw-w64 10), and runs what it builds under Wine:
#
#   cmake -S . -B build/windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake
#
# The program must start on a Windows with nothing installed, so libgcc, libstdc++ and
# winpthread are linked in statically; only the system's own DLLs are imported.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KC_MINGW_TRIPLE x86_64-w64-mingw32)
# The -posix compilers: std::thread and std::mutex need the POSIX thread model.
set(CMAKE_C_COMPILER ${KC_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KC_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${KC_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${KC_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")

# Test programs, GoogleTest's discovery included, run under Wine in a prefix of the build
# folder's own, so that no test sees the user's Wine registry or leaves anything in it.
# The wrapper boots that prefix once, on first use.
set(CMAKE_CROSSCOMPILING_EMULATOR
    ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh ${CMAKE_BINARY_DIR}/wine-prefix)
