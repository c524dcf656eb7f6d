# Install rules and the Debian package (scripts/package.sh builds it).
#   bin/                         the three programs
#   share/arven/                 graphics, javascript, help, and the demo stores in dbases/
#   share/applications/, share/icons/hicolor/scalable/apps/   desktop entry and icon
#   share/man/man1/              a manual page for each program
#   share/doc/arven/             README, third-party notices, copyright, changelog
# The scripts and the demo stores come from the program folder that
# scripts/setup.sh prepares (build/app); installing before it fails.
include(GNUInstallDirs)

set(ARVEN_MAINTAINER_EMAIL "arven@example.org")
set(ARVEN_APP_FOLDER ${CMAKE_BINARY_DIR}/app)
set(ARVEN_PACKAGING_OUT ${CMAKE_BINARY_DIR}/packaging)

# Manual pages and the changelog, compressed as Debian wants them.
set(packaging_sources)
set(packaging_outputs)
foreach(page arven arven-admin arven-downloader)
  configure_file(${CMAKE_SOURCE_DIR}/packaging/${page}.1 ${ARVEN_PACKAGING_OUT}/${page}.1 @ONLY)
  list(APPEND packaging_sources ${ARVEN_PACKAGING_OUT}/${page}.1)
endforeach()
configure_file(${CMAKE_SOURCE_DIR}/packaging/changelog.in ${ARVEN_PACKAGING_OUT}/changelog @ONLY)
list(APPEND packaging_sources ${ARVEN_PACKAGING_OUT}/changelog)
foreach(source ${packaging_sources})
  add_custom_command(OUTPUT ${source}.gz
    COMMAND gzip -9 -n -c ${source} > ${source}.gz
    DEPENDS ${source})
  list(APPEND packaging_outputs ${source}.gz)
endforeach()
add_custom_target(packaging_files ALL DEPENDS ${packaging_outputs})

install(TARGETS arven arven-admin arven-downloader RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(DIRECTORY ${CMAKE_SOURCE_DIR}/graphics/ DESTINATION ${CMAKE_INSTALL_DATADIR}/arven/graphics
  PATTERN "*.py" EXCLUDE)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/help/ DESTINATION ${CMAKE_INSTALL_DATADIR}/arven/help)
install(FILES ${ARVEN_APP_FOLDER}/javascript/highcharts.js ${ARVEN_APP_FOLDER}/javascript/jquery.Min.js
  ${ARVEN_APP_FOLDER}/javascript/exporting.js ${ARVEN_APP_FOLDER}/javascript/offline-exporting.js
  DESTINATION ${CMAKE_INSTALL_DATADIR}/arven/javascript)
# The demo stores: the master stores and the country stores the set-up's
# pre-processing run made and installed.
install(CODE "
  file(GLOB country_stores \"${ARVEN_APP_FOLDER}/dbases/new_arven_operations_*.mdb\")
  if(NOT country_stores)
    message(FATAL_ERROR \"no demo country stores in ${ARVEN_APP_FOLDER}/dbases: run scripts/setup.sh first\")
  endif()
  file(INSTALL \${country_stores} ${ARVEN_APP_FOLDER}/dbases/arven_operations.mdb
       ${ARVEN_APP_FOLDER}/dbases/arven_rvcs.mdb
       DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/arven/dbases\"
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
")

install(FILES ${CMAKE_SOURCE_DIR}/packaging/arven.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/arven.svg
  DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
foreach(page arven arven-admin arven-downloader)
  install(FILES ${ARVEN_PACKAGING_OUT}/${page}.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()
install(FILES ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_SOURCE_DIR}/packaging/NOTICES
  ${CMAKE_SOURCE_DIR}/packaging/copyright ${ARVEN_PACKAGING_OUT}/changelog.gz
  DESTINATION ${CMAKE_INSTALL_DOCDIR})

# ---- the Debian package --------------------------------------------------------
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME arven)
set(CPACK_PACKAGE_VENDOR "ARVEN maintainers")
set(CPACK_PACKAGE_CONTACT "ARVEN maintainers <${ARVEN_MAINTAINER_EMAIL}>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "decision support for rural climate policy")
# The summary is the synopsis; CPack indents the lines below it.
set(CPACK_PACKAGE_DESCRIPTION "ARVEN scales stored per-area impact figures of Rural Development Programme
operations (greenhouse-gas mitigation, adaptation risk reduction,
production) up to a region built from NUTS areas, and shows them in
reports, rankings and cost curves in the web browser.

The package holds the user build, the admin build with its data
preparation commands, the downloader of country stores, and demo stores.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "chromium, xdg-utils")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
  GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(CPack)
