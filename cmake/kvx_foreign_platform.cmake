# The module alone, against headers and a control library from elsewhere.

foreach(variable KVX_SWITCH_INCLUDE_DIR KVX_JSR309_INCLUDE_DIR KVX_JSR309_LIBRARY)
  if(NOT ${variable})
    message(FATAL_ERROR "${variable} is not set; building the module alone needs KVX_SWITCH_INCLUDE_DIR, "
      "KVX_JSR309_INCLUDE_DIR and KVX_JSR309_LIBRARY")
  endif()
  if(NOT EXISTS ${${variable}})
    message(FATAL_ERROR "${variable}: ${${variable}} does not exist")
  endif()
endforeach()

# Warnings inside another project's headers are not ours: they come in as system headers.
add_library(kvx_switch INTERFACE)
target_include_directories(kvx_switch SYSTEM INTERFACE ${KVX_SWITCH_INCLUDE_DIR})

add_library(jsr309 SHARED IMPORTED)
set_target_properties(jsr309 PROPERTIES IMPORTED_LOCATION ${KVX_JSR309_LIBRARY})
target_include_directories(jsr309 SYSTEM INTERFACE ${KVX_JSR309_INCLUDE_DIR})
