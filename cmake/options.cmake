# Compiler and linker flags that every target shares.
include(CheckCXXCompilerFlag)
include(CheckTypeSize)

# Some 32-bit systems count file sizes and seconds in 64 bits only when asked to.
check_type_size(off_t ZOT_OFF_T LANGUAGE CXX)
if(ZOT_OFF_T LESS 8)
  add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

add_library(zot_options INTERFACE)
target_compile_options(zot_options INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Werror)
# GCC 12 takes its own library's string concatenation for a copy onto itself (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION MATCHES "^12[.]")
  target_compile_options(zot_options INTERFACE -Wno-restrict)
endif()

# The tests themselves are not optimised (tests/CMakeLists.txt), which FORTIFY_SOURCE would need.
set(optimised $<NOT:$<BOOL:$<TARGET_PROPERTY:ZOT_UNOPTIMISED>>>)
if(ZOT_SANITIZE)
  target_compile_options(zot_options INTERFACE
    -fsanitize=${ZOT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # More would take longer to compile than it saves when the tests run.
  target_compile_options(zot_options INTERFACE $<${optimised}:-O1> -g1)
  target_link_options(zot_options INTERFACE -fsanitize=${ZOT_SANITIZE})
  # In instrumented code GCC gives this warning wrongly, in the library's own headers.
  target_compile_options(zot_options INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
else()
  # The agent runs as root and reads bytes from the network: every mitigation that costs nothing.
  target_compile_options(zot_options INTERFACE
    -fstack-protector-strong
    $<$<AND:$<CONFIG:Release>,${optimised}>:-U_FORTIFY_SOURCE>
    $<$<AND:$<CONFIG:Release>,${optimised}>:-D_FORTIFY_SOURCE=2>)
  check_cxx_compiler_flag(-fcf-protection=full ZOT_HAS_CF_PROTECTION)
  if(ZOT_HAS_CF_PROTECTION)
    target_compile_options(zot_options INTERFACE -fcf-protection=full)
  endif()
  target_link_options(zot_options INTERFACE -pie LINKER:-z,relro LINKER:-z,now)
endif()
