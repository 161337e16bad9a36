# What `cmake --install` puts on a server, and the Debian package made from
# it with `cpack -G DEB`: the program in sbin (only root may run it), its
# manual page, and the empty traffic/ and range/ directories under the
# output root, so that a fresh install is ready for its first reports.

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
# the day directories under traffic/ are made by whoever schedules runs.
set(SCANREPORT_SKELETON ${PROJECT_BINARY_DIR}/output-root-skeleton)
string(REGEX REPLACE "/$" "" SCANREPORT_ROOT_DIR "${SCANREPORT_OUTPUT_ROOT}")
file(MAKE_DIRECTORY ${SCANREPORT_SKELETON}/traffic ${SCANREPORT_SKELETON}/range)
install(DIRECTORY ${SCANREPORT_SKELETON}/traffic ${SCANREPORT_SKELETON}/range
        DESTINATION ${SCANREPORT_ROOT_DIR}
        DIRECTORY_PERMISSIONS ${SCANREPORT_DIRECTORY_MODE})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME scanreport)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "scanreport maintainers <root@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "report pages from the scan log of an anti-virus engine")
set(CPACK_PACKAGE_DESCRIPTION
    "scanreport reads the scan log of the anti-virus engine and writes the
daily and date-range report tables, summary pages and quarantine pages
that the administrators' web console shows. Run it as root, once per
report, for example from cron.")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Depends is computed from the libraries the program really links.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
include(CPack)
