# Picks the files that know the operating system and the processor; no other file does.
if(CMAKE_SYSTEM_NAME STREQUAL "FreeBSD")
  set(ZOT_PLATFORM_SOURCES
    src/base/platform/child_freebsd.cpp
    src/base/platform/system_freebsd.cpp)
else()
  set(ZOT_PLATFORM_SOURCES
    src/base/platform/child_linux.cpp
    src/base/platform/system_linux.cpp)
endif()
