# One interface target carries the warning flags and sanitizer options for our own code.
add_library(vexa_options INTERFACE)
target_compile_options(vexa_options INTERFACE -Wall -Wextra -Wshadow -Werror)

if(VEXA_SANITIZE STREQUAL "address")
  # vptr checks read process maps, which fails in the tests that run out of descriptors on purpose.
  set(_vexa_san -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=undefined
    -fno-omit-frame-pointer)
elseif(VEXA_SANITIZE STREQUAL "thread")
  set(_vexa_san -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT VEXA_SANITIZE STREQUAL "")
  message(FATAL_ERROR "VEXA_SANITIZE must be empty, 'address' or 'thread'")
endif()
if(_vexa_san)
  add_compile_options(${_vexa_san})
  add_link_options(${_vexa_san})
endif()
if(VEXA_FUZZ)
  # Our code carries the fuzzer's coverage counters, so that the fuzz targets are guided through
  # the parsers and not only through their own few lines. Programs not linked with the fuzzer get
  # the sanitizer runtime's empty counter hooks.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# lld links the test programs several times faster than the default linker, most of all with
# sanitizers and debug information; used whenever the toolchain accepts it.
include(CheckLinkerFlag)
check_linker_flag(CXX -fuse-ld=lld VEXA_HAVE_LLD)
if(VEXA_HAVE_LLD)
  add_link_options(-fuse-ld=lld)
endif()

# Line tables only: backtraces and sanitizer reports keep their files and lines, the build
# takes about a quarter less time. The test command builds this way.
option(VEXA_LINE_TABLES "Limit debug information to line tables (-g1)" OFF)
if(VEXA_LINE_TABLES)
  add_compile_options(-g1)
endif()
