# Installs what surrounds the programs, and makes packages of all of it.

install(FILES docs/man/zotq.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES docs/man/zot.cfg.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(FILES docs/man/zot-commands.7 docs/man/zot-expr.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7)
install(FILES docs/man/zot.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
if(ZOT_EXPORTER)
  install(FILES docs/man/zot-exporter.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8
    COMPONENT exporter)
  install(FILES packaging/prometheus/scrape.yml packaging/prometheus/alerts.yml
    packaging/icinga2/zot.conf packaging/grafana/fleet.json
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zot-exporter COMPONENT exporter)
endif()
install(FILES docs/guide.md docs/reliability.md docs/architecture.md docs/performance.md
  docs/platforms.md README.md CHANGELOG.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
install(FILES packaging/completion/zotq.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME zotq)

# The configuration, the service and the log rotation name installed paths, and the prefix is final
# only when things are installed.
function(install_part part component)
  install(CODE "
    set(ZOT_PART ${part})
    set(ZOT_PACKAGING_DIR \"${CMAKE_SOURCE_DIR}/packaging\")
    set(ZOT_SCRATCH_DIR \"${CMAKE_BINARY_DIR}/packaging\")
    set(ZOT_SYSTEM \"${CMAKE_SYSTEM_NAME}\")
    set(ZOT_BIN \"${CMAKE_INSTALL_BINDIR}\")
    set(ZOT_SBIN \"${CMAKE_INSTALL_SBINDIR}\")
    set(ZOT_SYSCONF \"${CMAKE_INSTALL_SYSCONFDIR}\")" COMPONENT ${component})
  install(SCRIPT ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/install_configured.cmake
    COMPONENT ${component})
endfunction()
install_part(agent Unspecified)
if(ZOT_EXPORTER)
  install_part(exporter exporter)
endif()

set(CPACK_PACKAGE_NAME zot)
set(CPACK_PACKAGE_VENDOR "The zot developers")
set(CPACK_PACKAGE_CONTACT "The zot developers <zot@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "remote monitoring agent")
set(CPACK_PACKAGE_DESCRIPTION
  "zot runs on a monitored host and answers the requests of a monitoring server:
disk space, folders, files, checksums, text logs, processes, CPU usage, scripts,
external programs, and TCP and UDP services. zotq asks it from the command line.")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://zot.example.org")
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
# A monitored host gets the agent and zotq, and none of the exporter's libraries.
set(CPACK_INSTALL_CMAKE_PROJECTS "${CMAKE_BINARY_DIR};${PROJECT_NAME};Unspecified;/")
# Configuration and service are outside the prefix.
set(CPACK_SET_DESTDIR ON)

find_program(ZOT_DPKG dpkg)
if(NOT ZOT_DPKG)
  set(CPACK_GENERATOR TGZ)
  set(CPACK_INSTALL_PREFIX /usr/local)
  include(CPack)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
# The scripts for processes and CPU use ps; a host without it can do everything else.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "procps, logrotate")
find_program(ZOT_SHLIBDEPS dpkg-shlibdeps)
if(ZOT_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libc-ares2, libgcc-s1, libstdc++6")
endif()
# The configuration itself is not among these files: the first installation writes it, with its own
# password, and no upgrade touches it.
set(controlDir ${CMAKE_SOURCE_DIR}/packaging/debian)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${controlDir}/conffiles ${controlDir}/postinst ${controlDir}/prerm ${controlDir}/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
