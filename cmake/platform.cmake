# Picks the files that know the operating system and the processor; no other file does.
if(CMAKE_SYSTEM_NAME STREQUAL "FreeBSD")
  set(ZOT_PLATFORM_SOURCES
    src/base/platform/child_freebsd.cpp
    src/base/platform/readiness_freebsd.cpp
    src/base/platform/system_freebsd.cpp)
else()
  set(ZOT_PLATFORM_SOURCES
    src/base/platform/child_linux.cpp
    src/base/platform/readiness_linux.cpp
    src/base/platform/system_linux.cpp)
endif()

# The file hashes in the processor's own instructions; other processors use the portable code.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64)$" AND CMAKE_SIZEOF_VOID_P EQUAL 8)
  list(APPEND ZOT_PLATFORM_SOURCES src/base/platform/hash_x86_64.cpp)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$" AND CMAKE_SIZEOF_VOID_P EQUAL 8)
  list(APPEND ZOT_PLATFORM_SOURCES src/base/platform/hash_aarch64.cpp)
  if(CMAKE_SYSTEM_NAME STREQUAL "FreeBSD")
    list(APPEND ZOT_PLATFORM_SOURCES src/base/platform/arm_features_freebsd.cpp)
  else()
    list(APPEND ZOT_PLATFORM_SOURCES src/base/platform/arm_features_linux.cpp)
  endif()
  # Its hashes alone use these instructions, and only where the processor is known to have them.
  set_source_files_properties(src/base/platform/hash_aarch64.cpp PROPERTIES
    COMPILE_OPTIONS "-march=armv8.2-a+crc+crypto+sha3")
else()
  list(APPEND ZOT_PLATFORM_SOURCES src/base/platform/hash_generic.cpp)
endif()
