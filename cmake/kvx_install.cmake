# What `cmake --install` puts where: programs, libraries and modules, the configuration, the unit, pages to read.
# Everything follows the prefix that is given at the time of the installation; with /usr the configuration is in /etc.

set(KVX_LIBRARY_DIR lib/kelvaro)

set_target_properties(kvx-switch kvx-cli PROPERTIES INSTALL_RPATH "\$ORIGIN/../${KVX_LIBRARY_DIR}")
set_target_properties(kvx_switch jsr309 PROPERTIES INSTALL_RPATH "\$ORIGIN")
set_target_properties(mod_kelvaro_media_server PROPERTIES INSTALL_RPATH "\$ORIGIN/..")

install(TARGETS kvx-switch kvx-cli RUNTIME DESTINATION bin)
install(TARGETS kvx_switch jsr309 LIBRARY DESTINATION ${KVX_LIBRARY_DIR})
install(TARGETS mod_kelvaro_media_server LIBRARY DESTINATION ${KVX_LIBRARY_DIR}/mod)

install(FILES README.md SECURITY.md DESTINATION share/doc/kvx-switch)
install(DIRECTORY docs/ DESTINATION share/doc/kvx-switch FILES_MATCHING PATTERN "*.md")
install(FILES packaging/man/kvx-switch.8 DESTINATION share/man/man8)
install(FILES packaging/man/kvx-cli.1 DESTINATION share/man/man1)

install(CODE "set(KVX_SOURCE_DIR \"${CMAKE_SOURCE_DIR}\")\nset(KVX_BINARY_DIR \"${CMAKE_BINARY_DIR}\")")
install(SCRIPT ${CMAKE_SOURCE_DIR}/cmake/kvx_install_configuration.cmake)
