# zot-exporter, where its libraries are.
find_package(yaml-cpp QUIET)
find_path(MICROHTTPD_INCLUDE_DIR microhttpd.h)
find_library(MICROHTTPD_LIBRARY microhttpd)
find_package(GnuTLS QUIET)
find_library(CRYPT_LIBRARY crypt)
if(NOT yaml-cpp_FOUND OR NOT MICROHTTPD_INCLUDE_DIR OR NOT MICROHTTPD_LIBRARY OR
    NOT GNUTLS_FOUND OR NOT CRYPT_LIBRARY)
  message(STATUS "Without zot-exporter: it needs yaml-cpp, libmicrohttpd, GnuTLS and libcrypt")
  set(ZOT_EXPORTER OFF)
  return()
endif()
set(ZOT_EXPORTER ON)

file(GLOB exporterSources CONFIGURE_DEPENDS exporter/*.cpp)
list(FILTER exporterSources EXCLUDE REGEX "exporter/zot_exporter\\.cpp$")
add_library(zot_exporter_library STATIC ${exporterSources})
set_target_properties(zot_exporter_library PROPERTIES OUTPUT_NAME zot_exporter)
target_include_directories(zot_exporter_library SYSTEM PRIVATE
  ${MICROHTTPD_INCLUDE_DIR} ${GNUTLS_INCLUDE_DIR} ${YAML_CPP_INCLUDE_DIR})
target_link_libraries(zot_exporter_library
  PUBLIC zot_client
  PRIVATE CLI11::CLI11 ${MICROHTTPD_LIBRARY} ${GNUTLS_LIBRARIES} ${CRYPT_LIBRARY} yaml-cpp)

add_executable(zot-exporter exporter/zot_exporter.cpp)
target_link_libraries(zot-exporter PRIVATE zot_exporter_library)
install(TARGETS zot-exporter RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT exporter)
