# Cross-compiles for FreeBSD with clang and lld:
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/freebsd.cmake -DZOT_SYSROOT=DIRECTORY
# ZOT_SYSROOT  holds lib, usr/lib and usr/include of that system
# ZOT_TARGET   the system to build for, x86_64-unknown-freebsd13.2 by default
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZOT_SYSROOT ZOT_TARGET)
if(NOT IS_DIRECTORY "${ZOT_SYSROOT}/usr/include")
  message(FATAL_ERROR "ZOT_SYSROOT has to name a directory with FreeBSD's lib and usr")
endif()
if(NOT ZOT_TARGET)
  set(ZOT_TARGET x86_64-unknown-freebsd13.2)
endif()
if(NOT ZOT_TARGET MATCHES "^([^-]+)-.*freebsd([0-9.]+)$")
  message(FATAL_ERROR "ZOT_TARGET has to be like x86_64-unknown-freebsd13.2, not ${ZOT_TARGET}")
endif()

set(CMAKE_SYSTEM_NAME FreeBSD)
set(CMAKE_SYSTEM_PROCESSOR ${CMAKE_MATCH_1})
set(CMAKE_SYSTEM_VERSION ${CMAKE_MATCH_2})
set(CMAKE_SYSROOT ${ZOT_SYSROOT})

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${ZOT_TARGET})
set(CMAKE_CXX_COMPILER_TARGET ${ZOT_TARGET})
set(CMAKE_CXX_FLAGS_INIT -stdlib=libc++)
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -fuse-ld=lld)
endforeach()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# No program of that system runs here, so its tests are listed where they run.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
