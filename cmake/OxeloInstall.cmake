# What `cmake --install` puts in place, so that the program is installed like
# any Linux application: the binary, its desktop entry (listed by phone
# shells as adaptive), the AppStream metainfo that software centres read, the
# icon, the compiled translations when the build made them, and a systemd
# user unit that runs the program with no display on boards.
include(GNUInstallDirs)

set(oxelo_dist ${PROJECT_SOURCE_DIR}/dist)
set(oxelo_id app.oxelo.Oxelo)

install(TARGETS oxelo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT program)
install(FILES ${oxelo_dist}/${oxelo_id}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications
        COMPONENT data)
configure_file(${oxelo_dist}/${oxelo_id}.metainfo.xml.in
               ${CMAKE_BINARY_DIR}/dist/${oxelo_id}.metainfo.xml @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/dist/${oxelo_id}.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo COMPONENT data)
install(FILES ${oxelo_dist}/${oxelo_id}.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps COMPONENT data)

# The window carries its translations built in; the .qm files go beside it
# for packagers and translators when the Qt build has made them, and the
# rule does nothing without them.
install(DIRECTORY ${CMAKE_BINARY_DIR}/translations/
        DESTINATION ${CMAKE_INSTALL_DATADIR}/oxelo/translations OPTIONAL COMPONENT data
        FILES_MATCHING PATTERN "*.qm")

# The unit names the binary by its full path under the prefix given at
# install time (`cmake --install --prefix`), so it is written then.
install(CODE "
  set(OXELO_BINARY \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/oxelo\")
  configure_file(\"${oxelo_dist}/oxelo-headless.service.in\"
                 \"${CMAKE_BINARY_DIR}/dist/oxelo-headless.service\" @ONLY)
" COMPONENT data)
install(FILES ${CMAKE_BINARY_DIR}/dist/oxelo-headless.service
        DESTINATION lib/systemd/user COMPONENT data)

# The files beside the program, installed into a scratch prefix and checked
# with the desktop-entry and AppStream validators (no network).
add_test(NAME install_files COMMAND ${oxelo_dist}/check-install ${CMAKE_BINARY_DIR})
set_tests_properties(install_files PROPERTIES LABELS shell)
