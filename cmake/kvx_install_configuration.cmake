# Run at the time of an installation: the configuration, whose files are the operator's once they are there, and the
# unit, which names paths.

if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(KVX_CONFIGURATION_DIR /etc/kelvaro)
else()
  set(KVX_CONFIGURATION_DIR ${CMAKE_INSTALL_PREFIX}/etc/kelvaro)
endif()

file(GLOB_RECURSE files RELATIVE ${KVX_SOURCE_DIR}/conf ${KVX_SOURCE_DIR}/conf/*.xml)
foreach(file IN LISTS files)
  set(there $ENV{DESTDIR}${KVX_CONFIGURATION_DIR}/${file})
  if(EXISTS ${there})
    message(STATUS "Kept: ${there}")
  else()
    get_filename_component(directory ${file} DIRECTORY)
    file(INSTALL ${KVX_SOURCE_DIR}/conf/${file} DESTINATION ${KVX_CONFIGURATION_DIR}/${directory})
  endif()
endforeach()

set(KVX_BIN_DIR ${CMAKE_INSTALL_PREFIX}/bin)
set(KVX_DOC_DIR ${CMAKE_INSTALL_PREFIX}/share/doc/kvx-switch)
configure_file(${KVX_SOURCE_DIR}/packaging/kvx-switch.service.in ${KVX_BINARY_DIR}/kvx-switch.service @ONLY)
file(INSTALL ${KVX_BINARY_DIR}/kvx-switch.service DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
