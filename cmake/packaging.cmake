# Installs what surrounds the programs, and makes packages of all of it: one each for the agent, the
# client and the exporter, so that a monitoring server gets no agent and a monitored host nothing else.

install(FILES docs/man/zotq.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT client)
install(FILES packaging/completion/zotq.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME zotq COMPONENT client)
install(FILES docs/man/zot-commands.7 docs/man/zot-expr.7
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT client)
install(FILES packaging/icinga2/zot.conf DESTINATION ${CMAKE_INSTALL_DATADIR}/zotq COMPONENT client)
install(FILES docs/man/zot.cfg.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT agent)
install(FILES docs/man/zot.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT agent)
install(FILES docs/guide.md docs/reliability.md docs/architecture.md docs/performance.md
  docs/platforms.md README.md CHANGELOG.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT agent)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright COMPONENT agent)
if(ZOT_EXPORTER)
  install(FILES docs/man/zot-exporter.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8
    COMPONENT exporter)
  install(FILES packaging/prometheus/scrape.yml packaging/prometheus/alerts.yml
    packaging/grafana/fleet.json packaging/zabbix/zabbix.yaml
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zot-exporter COMPONENT exporter)
endif()

# The configuration, the service and the log rotation name installed paths, and the prefix is final
# only when things are installed.
function(install_part part)
  install(CODE "
    set(ZOT_PART ${part})
    set(ZOT_PACKAGING_DIR \"${CMAKE_SOURCE_DIR}/packaging\")
    set(ZOT_SCRATCH_DIR \"${CMAKE_BINARY_DIR}/packaging\")
    set(ZOT_SYSTEM \"${CMAKE_SYSTEM_NAME}\")
    set(ZOT_BIN \"${CMAKE_INSTALL_BINDIR}\")
    set(ZOT_SBIN \"${CMAKE_INSTALL_SBINDIR}\")
    set(ZOT_LIBEXEC \"${CMAKE_INSTALL_LIBEXECDIR}\")
    set(ZOT_SYSCONF \"${CMAKE_INSTALL_SYSCONFDIR}\")" COMPONENT ${part})
  install(SCRIPT ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/install_configured.cmake COMPONENT ${part})
endfunction()

set(CPACK_PACKAGE_NAME zot)
set(CPACK_PACKAGE_VENDOR "The zot developers")
set(CPACK_PACKAGE_CONTACT "The zot developers <zot@example.org>")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://zot.example.org")
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
# Configuration and service are outside the prefix.
set(CPACK_SET_DESTDIR ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/finish_packages.cmake)

# The Debian packages take the first line of a description for its summary.
function(describe_package part name summary description)
  string(TOUPPER ${part} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
  set(CPACK_RPM_${key}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_RPM_${key}_PACKAGE_SUMMARY "${summary}" PARENT_SCOPE)
  set(CPACK_RPM_${key}_PACKAGE_DESCRIPTION "${description}" PARENT_SCOPE)
  install_part(${part})
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${part} PARENT_SCOPE)
endfunction()
set(CPACK_COMPONENTS_ALL "")
describe_package(agent zot "remote monitoring agent"
"zot runs on a monitored host and answers the requests of a monitoring
server: disk space, folders, files, checksums, text logs, processes, CPU
usage, scripts, external programs, and TCP and UDP services.")
describe_package(client zotq "client of the remote monitoring agent zot"
"zotq asks zot agents from the command line, one or a whole list at once,
changes their settings, upgrades them in batches, and is a plugin for
Icinga, Nagios, Naemon and others.")
if(ZOT_EXPORTER)
  describe_package(exporter zot-exporter "Prometheus exporter for zot agents"
"zot-exporter stands beside Prometheus and asks zot agents for it, each with
its own password. It comes with a scrape configuration, alerts, a dashboard
for Grafana and a check command for Icinga 2.")
endif()

# cpack -G RPM: on the system that it is for, whose libraries it then asks for.
set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_RELEASE 2)
set(CPACK_RPM_PACKAGE_LICENSE BSD-2-Clause)
# Folders that belong to others.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION /etc/logrotate.d /usr/lib/systemd
  /usr/lib/systemd/system /usr/lib/sysusers.d /usr/libexec /usr/sbin /usr/share/bash-completion
  /usr/share/bash-completion/completions /usr/share/man /usr/share/man/man1 /usr/share/man/man5
  /usr/share/man/man7 /usr/share/man/man8 /usr/share/zsh /usr/share/zsh/site-functions /var /var/lib
  /var/log)
set(rpmDir ${CMAKE_SOURCE_DIR}/packaging/rpm)
foreach(part agent exporter)
  string(TOUPPER ${part} key)
  set(CPACK_RPM_${key}_POST_INSTALL_SCRIPT_FILE ${rpmDir}/${part}/post)
  set(CPACK_RPM_${key}_PRE_UNINSTALL_SCRIPT_FILE ${rpmDir}/${part}/preun)
  set(CPACK_RPM_${key}_POST_UNINSTALL_SCRIPT_FILE ${rpmDir}/${part}/postun)
endforeach()
set(CPACK_RPM_AGENT_USER_FILELIST "%config(noreplace) /etc/logrotate.d/zot"
  "%config /etc/zot/zot.cfg.sample")
set(CPACK_RPM_EXPORTER_PACKAGE_REQUIRES systemd)
set(CPACK_RPM_EXPORTER_USER_FILELIST "%config /etc/zot/zot-exporter.yml.sample")

find_program(ZOT_DPKG dpkg)
if(NOT ZOT_DPKG)
  set(CPACK_GENERATOR TGZ)
  set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
  set(CPACK_INSTALL_PREFIX /usr/local)
  include(CPack)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 2)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(controlDir ${CMAKE_SOURCE_DIR}/packaging/debian)

# The scripts for processes and CPU use ps; a host without it can do everything else.
set(CPACK_DEBIAN_AGENT_PACKAGE_RECOMMENDS "procps, logrotate")
set(CPACK_DEBIAN_AGENT_PACKAGE_SUGGESTS zotq)
# The configuration itself is not among the conffiles: the first installation writes it, with its own
# password, and no upgrade touches it.
set(CPACK_DEBIAN_AGENT_PACKAGE_CONTROL_EXTRA ${controlDir}/agent/conffiles
  ${controlDir}/agent/postinst ${controlDir}/agent/prerm ${controlDir}/agent/postrm)

# The first release had the client in the agent's package.
set(CPACK_DEBIAN_CLIENT_PACKAGE_BREAKS "zot (<< 1.36-2)")
set(CPACK_DEBIAN_CLIENT_PACKAGE_REPLACES "zot (<< 1.36-2)")

set(CPACK_DEBIAN_EXPORTER_PACKAGE_DEPENDS "systemd | systemd-standalone-sysusers | systemd-sysusers")
set(CPACK_DEBIAN_EXPORTER_PACKAGE_SUGGESTS "prometheus, zotq")
set(CPACK_DEBIAN_EXPORTER_PACKAGE_CONTROL_EXTRA ${controlDir}/exporter/conffiles
  ${controlDir}/exporter/postinst ${controlDir}/exporter/prerm ${controlDir}/exporter/postrm)
include(CPack)
