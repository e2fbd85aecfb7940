# Cross-compiling for 32-bit Windows with Clang and LLD on Debian's mingw-w64. LLD writes program databases and records in the image
# by which debuggers and symbol stores find them; the headers and libraries are those of the GCC for POSIX threads.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86)

set(CRV_LLVM 16)  # Boost 1.74 and mingw-w64 10 do not take Clang 19
set(CMAKE_C_COMPILER clang-${CRV_LLVM})
set(CMAKE_CXX_COMPILER clang++-${CRV_LLVM})
set(CMAKE_C_COMPILER_TARGET i686-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET i686-w64-mingw32)
set(CMAKE_RC_COMPILER i686-w64-mingw32-windres)
set(CRV_DLLTOOL llvm-dlltool-${CRV_LLVM} -m i386)
set(CMAKE_AR llvm-ar-${CRV_LLVM})
set(CMAKE_RANLIB llvm-ranlib-${CRV_LLVM})
set(CRV_STRIP llvm-strip-${CRV_LLVM})

set(CRV_GCC_LIBRARIES /usr/lib/gcc/i686-w64-mingw32/12-posix)
# Clang looks for libc++ and for the GCC of the other thread model.
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES
  ${CRV_GCC_LIBRARIES}/include/c++ ${CRV_GCC_LIBRARIES}/include/c++/i686-w64-mingw32 ${CRV_GCC_LIBRARIES}/include/c++/backward)
# libstdc++'s thread-local objects (std::call_once) are emulated ones.
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-nostdinc++;-femulated-tls>")
# -B as well as -L: else the linker takes mingw-w64's own crtbegin.o, which registers no exception frames, and every throw ends the
# process.
set(linker "-fuse-ld=lld-${CRV_LLVM} -B ${CRV_GCC_LIBRARIES} -L ${CRV_GCC_LIBRARIES}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${linker}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${linker}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${linker}")

set(CMAKE_FIND_ROOT_PATH /usr/i686-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../scripts/wine")
