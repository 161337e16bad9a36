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

# Manual pages are shipped compressed, as Debian's own are; -n keeps the
# name and time stamp out so that rebuilds give the same bytes.
set(SCANREPORT_MAN_SOURCE ${PROJECT_SOURCE_DIR}/doc/scanreport.8)
find_program(GZIP_EXECUTABLE gzip)
if(GZIP_EXECUTABLE)
  set(SCANREPORT_MAN_PAGE ${PROJECT_BINARY_DIR}/doc/scanreport.8.gz)
  add_custom_command(
    OUTPUT ${SCANREPORT_MAN_PAGE}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/doc
    COMMAND ${GZIP_EXECUTABLE} -9 -n -c ${SCANREPORT_MAN_SOURCE} >
            ${SCANREPORT_MAN_PAGE}
    DEPENDS ${SCANREPORT_MAN_SOURCE}
    COMMENT "Compressing the manual page"
    VERBATIM)
  add_custom_target(scanreport_man_page ALL DEPENDS ${SCANREPORT_MAN_PAGE})
else()
  set(SCANREPORT_MAN_PAGE ${SCANREPORT_MAN_SOURCE})
endif()
install(FILES ${SCANREPORT_MAN_PAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)

# The tool creates no directories. The package brings the two fixed ones;
# the day directories under traffic/ are made by the nightly run.
set(SCANREPORT_SKELETON ${PROJECT_BINARY_DIR}/output-root-skeleton)
string(REGEX REPLACE "/$" "" SCANREPORT_ROOT_DIR "${SCANREPORT_OUTPUT_ROOT}")
file(MAKE_DIRECTORY ${SCANREPORT_SKELETON}/traffic ${SCANREPORT_SKELETON}/range)
install(DIRECTORY ${SCANREPORT_SKELETON}/traffic ${SCANREPORT_SKELETON}/range
        DESTINATION ${SCANREPORT_ROOT_DIR}
        DIRECTORY_PERMISSIONS ${SCANREPORT_DIRECTORY_MODE})

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
    "nginx.conf.in:nginx/scanreport.conf")
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
set(CPACK_PACKAGE_CONTACT "scanreport maintainers <root@localhost>")
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
# the timer is enabled the Debian way (see packaging/debian/postinst).
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${SCANREPORT_PACKAGING}/debian/conffiles
    ${SCANREPORT_PACKAGING}/debian/postinst
    ${SCANREPORT_PACKAGING}/debian/prerm
    ${SCANREPORT_PACKAGING}/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
include(CPack)
