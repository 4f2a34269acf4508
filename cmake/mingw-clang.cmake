# Compiles for 64-bit Windows with clang, on the headers of MinGW-w64: a second opinion on the code. For presets that
# only compile: programs that lld links with the run-time library of GCC wait forever in std::latch.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)

# clang does not find the headers of the variant with POSIX threads, and adds those of the build machine.
file(GLOB posix_headers /usr/lib/gcc/x86_64-w64-mingw32/*-posix/include/c++)
file(GLOB clang_headers /usr/lib/llvm-14/lib/clang/*/include)
set(c_headers "-isystem ${clang_headers} -isystem /usr/x86_64-w64-mingw32/include")
set(CMAKE_C_FLAGS_INIT "-nostdinc ${c_headers}")
set(CMAKE_CXX_FLAGS_INIT "-nostdinc -isystem ${posix_headers} -isystem ${posix_headers}/x86_64-w64-mingw32 \
-isystem ${posix_headers}/backward ${c_headers}")

# A trial of the compiler must not link either.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
