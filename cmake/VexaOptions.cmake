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
