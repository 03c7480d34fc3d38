# Initial cache for the libc++ build (scripts/check-libcxx): clang with LLVM's standard
# library, the one the Mac uses, so that code only GCC's library tolerates (a missing
# <thread>, <chrono>, <optional> ...) fails here rather than on the first Mac build.
set(CMAKE_C_COMPILER clang CACHE STRING "")
set(CMAKE_CXX_COMPILER clang++ CACHE STRING "")
set(CMAKE_CXX_FLAGS "-stdlib=libc++" CACHE STRING "")
# libc++abi by name: the static hook gets no implicit C++ ABI library.
set(CMAKE_EXE_LINKER_FLAGS "-stdlib=libc++ -lc++abi" CACHE STRING "")
set(DUSKWELL_WERROR ON CACHE BOOL "")
set(DUSKWELL_TESTS ON CACHE BOOL "")
# Debian's GoogleTest and Google Benchmark are built against GCC's library: GoogleTest is
# compiled from its packaged sources in this tree, the benchmarks are left out.
set(DUSKWELL_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "")
set(CMAKE_DISABLE_FIND_PACKAGE_benchmark ON CACHE BOOL "")
