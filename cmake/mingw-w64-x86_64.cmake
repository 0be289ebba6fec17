# Cross toolchain: 64-bit Windows binaries from Debian's mingw-w64 (posix thread model).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(VEXIL_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER   ${VEXIL_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VEXIL_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER  ${VEXIL_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${VEXIL_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# Packages (ours included) are found wherever CMAKE_PREFIX_PATH points.
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# Wine cannot locate the compiler's runtime DLLs, so every binary carries its runtime.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
