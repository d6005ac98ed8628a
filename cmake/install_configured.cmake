# Runs at installation, when the prefix is known: fills the installed paths into the files that name
# them, and puts each file where its system looks for it.

# With the prefix /usr, what belongs to the machine and not to the prefix goes to the root, as usual.
if(CMAKE_INSTALL_PREFIX MATCHES "^/(usr/?)?$")
  set(root "")
else()
  set(root ${CMAKE_INSTALL_PREFIX})
endif()

function(absolute_path result directory base)
  if(IS_ABSOLUTE ${directory})
    set(${result} ${directory} PARENT_SCOPE)
  else()
    set(${result} ${base}/${directory} PARENT_SCOPE)
  endif()
endfunction()

absolute_path(ZOT_SBINDIR ${ZOT_SBIN} ${CMAKE_INSTALL_PREFIX})
absolute_path(ZOT_LIBEXECDIR ${ZOT_LIBEXEC} ${CMAKE_INSTALL_PREFIX})
absolute_path(ZOT_SYSCONFDIR ${ZOT_SYSCONF} "${root}")
if(ZOT_SYSTEM STREQUAL "FreeBSD")
  if(root STREQUAL "/usr/local")
    set(root "")
  endif()
  set(ZOT_STATEDIR ${root}/var/db/zot)
  set(ZOT_EXPORTERDIR ${root}/var/db/zot-exporter)
  set(ZOT_PIDFILE /var/run/zot.pid)
else()
  set(ZOT_STATEDIR ${root}/var/lib/zot)
  # Where its service may write.
  set(ZOT_EXPORTERDIR /var/lib/zot-exporter)
  set(ZOT_PIDFILE /run/zot.pid)
endif()
set(ZOT_LOGDIR ${root}/var/log/zot)

set(ownerAll OWNER_READ OWNER_WRITE OWNER_EXECUTE)
set(ownerFile OWNER_READ OWNER_WRITE)
set(forAll ${ownerFile} GROUP_READ WORLD_READ)
set(executable ${ownerAll} GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# An empty directory, unless it exists: an administrator may have changed its permissions.
function(install_directory directory)
  if(NOT IS_DIRECTORY $ENV{DESTDIR}${directory})
    file(INSTALL DESTINATION ${directory} TYPE DIRECTORY FILES "" DIRECTORY_PERMISSIONS ${ARGN})
  endif()
endfunction()

function(install_configured template directory name)
  configure_file(${ZOT_PACKAGING_DIR}/${template} ${ZOT_SCRATCH_DIR}/${name} @ONLY)
  file(INSTALL DESTINATION ${directory} TYPE FILE FILES ${ZOT_SCRATCH_DIR}/${name}
    PERMISSIONS ${ARGN})
endfunction()

if(ZOT_PART STREQUAL "exporter")
  install_configured(zot-exporter.yml.sample.in ${ZOT_SYSCONFDIR}/zot zot-exporter.yml.sample
    ${forAll})
  if(NOT ZOT_SYSTEM STREQUAL "FreeBSD")
    absolute_path(ZOT_BINDIR ${ZOT_BIN} ${CMAKE_INSTALL_PREFIX})
    install_configured(systemd/zot-exporter.service.in ${CMAKE_INSTALL_PREFIX}/lib/systemd/system
      zot-exporter.service ${forAll})
    install_configured(systemd/zot-exporter.sysusers ${CMAKE_INSTALL_PREFIX}/lib/sysusers.d
      zot-exporter.conf ${forAll})
  endif()
  return()
endif()

if(ZOT_PART STREQUAL "client")
  set(zshDir ${CMAKE_INSTALL_PREFIX}/share/zsh/site-functions)
  if(EXISTS /etc/debian_version AND CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$")
    set(zshDir /usr/share/zsh/vendor-completions)
  endif()
  file(INSTALL DESTINATION ${zshDir} TYPE FILE FILES ${ZOT_PACKAGING_DIR}/completion/_zotq
    PERMISSIONS ${forAll})
  return()
endif()

install_directory(${ZOT_STATEDIR} ${ownerAll})
install_directory(${ZOT_LOGDIR} ${ownerAll} GROUP_READ GROUP_EXECUTE)
# For root alone, like the file that is copied from it.
install_configured(zot.cfg.sample.in ${ZOT_SYSCONFDIR}/zot zot.cfg.sample ${ownerFile})

if(ZOT_SYSTEM STREQUAL "FreeBSD")
  install_configured(freebsd/zot.in ${ZOT_SYSCONFDIR}/rc.d zot ${executable})
  install_configured(freebsd/zot_watch.sh.in ${ZOT_LIBEXECDIR}/zot zot_watch.sh ${executable})
  install_configured(newsyslog/zot.conf.in ${ZOT_SYSCONFDIR}/newsyslog.conf.d zot.conf ${forAll})
else()
  foreach(unit zot zot-unprivileged)
    install_configured(systemd/${unit}.service.in ${CMAKE_INSTALL_PREFIX}/lib/systemd/system
      ${unit}.service ${forAll})
  endforeach()
  install_configured(systemd/zot-unprivileged.sysusers ${CMAKE_INSTALL_PREFIX}/lib/sysusers.d
    zot-unprivileged.conf ${forAll})
  install_configured(systemd/programs.conf ${CMAKE_INSTALL_PREFIX}/share/zot programs.conf ${forAll})
  install_configured(logrotate/zot-unprivileged ${CMAKE_INSTALL_PREFIX}/share/zot
    zot-unprivileged.logrotate ${forAll})
  install_configured(logrotate/zot.in ${ZOT_SYSCONFDIR}/logrotate.d zot ${forAll})
endif()
