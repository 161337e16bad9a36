# What `cmake --install` puts on a server, and the Debian package made from
# it with `cpack -G DEB`: the program in sbin (only root may run it), its
# manual page, the empty traffic/ and range/ directories under the output
# root, the nightly run (helper, systemd service and timer, settings in
# /etc/default), scanreport-metrics with the fleet's alert rules and
# dashboard, and the console with its web-server configuration.

# The package installs into /usr; so does a plain `cmake --install`, so
# that the paths written into the units and snippets hold for both.
if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
  set(CMAKE_INSTALL_PREFIX /usr CACHE PATH "Install prefix" FORCE)
endif()
include(GNUInstallDirs)

# Directories are created root-writable and world-readable: the web server
# reads the reports, only root's runs write them.
set(SCANREPORT_DIRECTORY_MODE
    OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${SCANREPORT_DIRECTORY_MODE})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${SCANREPORT_DIRECTORY_MODE})

# Manual pages and the changelog are shipped compressed, as Debian's own
# are; -n keeps the name and time stamp out so that rebuilds give the same
# bytes, and -9 is what lintian expects.
find_program(GZIP_EXECUTABLE gzip REQUIRED)
function(scanreport_gzip source target)
  add_custom_command(
    OUTPUT ${target}
    COMMAND ${GZIP_EXECUTABLE} -9 -n -c ${source} > ${target}
    DEPENDS ${source}
    VERBATIM)
endfunction()
set(SCANREPORT_MAN_PAGE ${PROJECT_BINARY_DIR}/doc/scanreport.8.gz)
set(SCANREPORT_CHANGELOG ${PROJECT_BINARY_DIR}/packaging/changelog.gz)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/doc ${PROJECT_BINARY_DIR}/packaging)
scanreport_gzip(${PROJECT_SOURCE_DIR}/doc/scanreport.8 ${SCANREPORT_MAN_PAGE})
scanreport_gzip(${PROJECT_SOURCE_DIR}/packaging/debian/changelog
                ${SCANREPORT_CHANGELOG})
add_custom_target(scanreport_compressed ALL
                  DEPENDS ${SCANREPORT_MAN_PAGE} ${SCANREPORT_CHANGELOG})
install(FILES ${SCANREPORT_MAN_PAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)

# Every program in sbin (or bin) has a manual page. Those that share
# scanreport(8), and are named in its NAME section, are listed here and get
# a link to it; a program that administrators never start by hand goes in
# lib/scanreport/ instead and needs none.
set(SCANREPORT_MAN_ALIASES scanreport-daily scanreport-metrics)
foreach(alias IN LISTS SCANREPORT_MAN_ALIASES)
  file(CREATE_LINK scanreport.8.gz ${PROJECT_BINARY_DIR}/doc/${alias}.8.gz
       SYMBOLIC)
  install(FILES ${PROJECT_BINARY_DIR}/doc/${alias}.8.gz
          DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
endforeach()

# The copyright (machine-readable, DEP-5) and the changelog, where Debian
# keeps them for a native package.
install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/copyright
              ${SCANREPORT_CHANGELOG}
        DESTINATION ${CMAKE_INSTALL_DOCDIR})

# The tool creates no directories, and the package ships none under the
# output root: its postinst makes the root, traffic/ and range/ (root:root,
# 0755) and nothing removes them, so the reports outlive the package. The
# day directories under traffic/ are made by the nightly run.
string(REGEX REPLACE "/$" "" SCANREPORT_ROOT_DIR "${SCANREPORT_OUTPUT_ROOT}")

# The nightly run. Paths are fixed when the package is built, as the
# output root is compiled into the program.
set(SCANREPORT_SBIN_DIR ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SBINDIR})
set(SCANREPORT_NIGHTLY_PROGRAM
    ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBEXECDIR}/scanreport/scanreport-nightly)
set(SCANREPORT_WEB_DIR ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/scanreport/web)
set(SCANREPORT_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)
set(SCANREPORT_CONFIGURED ${PROJECT_BINARY_DIR}/packaging)
foreach(pair
    "scanreport-daily.in:scanreport-daily"
    "scanreport-daily.service.in:scanreport-daily.service"
    "default.in:default/scanreport"
    "apache2.conf.in:apache2/scanreport.conf"
    "nginx.conf.in:nginx/scanreport.conf"
    "debian/postinst.in:debian/postinst")
  string(REPLACE ":" ";" pair "${pair}")
  list(GET pair 0 source)
  list(GET pair 1 target)
  configure_file(${SCANREPORT_PACKAGING}/${source}
                 ${SCANREPORT_CONFIGURED}/${target} @ONLY)
endforeach()
install(PROGRAMS ${SCANREPORT_CONFIGURED}/scanreport-daily
        DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(FILES ${SCANREPORT_CONFIGURED}/scanreport-daily.service
              ${SCANREPORT_PACKAGING}/scanreport-daily.timer
        DESTINATION lib/systemd/system)
install(FILES ${SCANREPORT_CONFIGURED}/default/scanreport
        DESTINATION /etc/default)
# The nightly run's state and lock: root's, readable by all (the state
# says which day was made last, for monitoring), written by root alone.
install(DIRECTORY DESTINATION /var/lib/scanreport
        DIRECTORY_PERMISSIONS ${SCANREPORT_DIRECTORY_MODE})
install(FILES ${SCANREPORT_CONFIGURED}/apache2/scanreport.conf
        DESTINATION /etc/apache2/conf-available)
install(FILES ${SCANREPORT_CONFIGURED}/nginx/scanreport.conf
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples RENAME nginx-scanreport.conf)

# The console. Its parts are only read by index.php (see the web-server
# snippet), so all are plain files.
install(FILES
  ${PROJECT_SOURCE_DIR}/web/index.php
  ${PROJECT_SOURCE_DIR}/web/files.php
  ${PROJECT_SOURCE_DIR}/web/fragments.php
  ${PROJECT_SOURCE_DIR}/web/rows.php
  ${PROJECT_SOURCE_DIR}/web/tables.php
  ${PROJECT_SOURCE_DIR}/web/text.php
  ${PROJECT_SOURCE_DIR}/web/trend.php
  ${PROJECT_SOURCE_DIR}/web/select.js
  ${PROJECT_SOURCE_DIR}/web/style.css
  DESTINATION ${CMAKE_INSTALL_DATADIR}/scanreport/web)

# The fleet's side: alert rules for Prometheus and a Grafana dashboard,
# for the administrators to load (README, "Metrics for a fleet").
install(FILES
  ${SCANREPORT_PACKAGING}/prometheus/scanreport.rules.yml
  ${SCANREPORT_PACKAGING}/prometheus/scanreport-dashboard.json
  DESTINATION ${CMAKE_INSTALL_DATADIR}/scanreport)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME scanreport)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# A release sets the address its administrators should write to.
set(SCANREPORT_MAINTAINER "scanreport maintainers <scanreport@example.org>"
    CACHE STRING "Maintainer field of the Debian package")
set(CPACK_PACKAGE_CONTACT "${SCANREPORT_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "report pages from the scan log of an anti-virus engine")
set(CPACK_PACKAGE_DESCRIPTION
    "scanreport reads the scan log of the anti-virus engine and writes the
daily and date-range report tables, summary pages and quarantine pages
that the administrators' web console shows. A systemd timer runs it
every night for the day before, once the scan log's path is set in
/etc/default/scanreport, and leaves the day's counts for the Prometheus
node exporter's textfile collector. The package also holds that console,
with a configuration for Apache, and alert rules and a Grafana dashboard
for a fleet of hosts.")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Depends is computed from the libraries the program really links.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# gzip (essential) reads rotated logs ending in .gz; the others' tools are
# needed only where the rotation compresses with them.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS
    "apache2 | nginx, libapache2-mod-php | php-fpm, prometheus-node-exporter, xz-utils, zstd, bzip2")
# The settings and the web-server snippet are the administrator's to edit;
# the timer is enabled the Debian way (see packaging/debian/postinst.in).
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${SCANREPORT_PACKAGING}/debian/conffiles
    ${SCANREPORT_CONFIGURED}/debian/postinst
    ${SCANREPORT_PACKAGING}/debian/prerm
    ${SCANREPORT_PACKAGING}/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
include(CPack)
