# Second compiler: Debian's clang targeting x86_64-w64-mingw32, on the Windows headers and the
# libstdc++ of Debian's mingw-w64 GCC (posix), linked by lld. Clang 14 does not find that GCC by
# itself: Debian names its folder after the thread model (12-posix), which clang does not read as a
# version, so the C++ headers and libraries are named here.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(VEXIL_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${VEXIL_MINGW_TRIPLE})
set(CMAKE_CXX_COMPILER_TARGET ${VEXIL_MINGW_TRIPLE})
set(CMAKE_RC_COMPILER ${VEXIL_MINGW_TRIPLE}-windres)

file(GLOB vexil_gcc_dirs /usr/lib/gcc/${VEXIL_MINGW_TRIPLE}/*-posix)
list(SORT vexil_gcc_dirs)
list(POP_BACK vexil_gcc_dirs VEXIL_MINGW_GCC_DIR)
if(NOT VEXIL_MINGW_GCC_DIR)
  message(FATAL_ERROR "clang needs the libstdc++ of mingw-w64 GCC (posix): install g++-mingw-w64-x86-64-posix")
endif()
set(vexil_cxx ${VEXIL_MINGW_GCC_DIR}/include/c++)
set(CMAKE_CXX_FLAGS_INIT "-isystem ${vexil_cxx} -isystem ${vexil_cxx}/${VEXIL_MINGW_TRIPLE} -isystem ${vexil_cxx}/backward")

set(CMAKE_FIND_ROOT_PATH /usr/${VEXIL_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# As in the GCC build, every binary carries its runtime; libstdc++ of the posix thread model needs
# winpthreads, which the GCC driver adds by itself.
set(vexil_link "-static -fuse-ld=lld -L${VEXIL_MINGW_GCC_DIR} -lpthread")
# Programs reserve 2 MiB of stack like GNU ld's, not lld's 1 MiB: the X file reader nests 4096 deep.
set(CMAKE_EXE_LINKER_FLAGS_INIT "${vexil_link} -Wl,--stack,2097152")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${vexil_link}")
