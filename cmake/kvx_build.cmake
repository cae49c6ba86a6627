# Settings that every target of the tree shares, and the few functions that make targets.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

# Assertions stay on in every build type: a core that says where it stopped is worth more than the cycles.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g1")
set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g")
set(CMAKE_CXX_FLAGS_SANITIZE "-O1 -g -fno-omit-frame-pointer")

set(KVX_SANITIZE "" CACHE STRING "sanitizers, as -fsanitize= takes them")
if(KVX_SANITIZE)
  add_compile_options(-fsanitize=${KVX_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KVX_SANITIZE})
  # g++ sees uninitialised values in its own library once the sanitizers have reshaped the code.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()

add_compile_options(-Wall -Wextra -Werror)

find_program(KVX_CCACHE ccache)
if(KVX_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KVX_CCACHE})
endif()

# kvx_sources(VARIABLE DIRECTORY...): every .cpp directly below the directories, seen again when one is added.
function(kvx_sources variable)
  set(found)
  foreach(directory IN LISTS ARGN)
    file(GLOB here CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${directory}/*.cpp)
    list(APPEND found ${here})
  endforeach()
  set(${variable} ${found} PARENT_SCOPE)
endfunction()

# kvx_test(NAME SOURCES... LIBRARIES...): a GoogleTest program whose cases CTest runs one by one.
function(kvx_test name)
  cmake_parse_arguments(TEST "" "TIMEOUT" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  if(NOT TEST_SOURCES)
    return()
  endif()
  if(NOT TEST_TIMEOUT)
    set(TEST_TIMEOUT 120)
  endif()
  if(KVX_SANITIZE STREQUAL "thread")
    list(APPEND TEST_SOURCES ${CMAKE_SOURCE_DIR}/tests/support/sanitizer/runtime_thread.cpp)
  endif()
  add_executable(${name} ${TEST_SOURCES})
  target_link_libraries(${name} PRIVATE ${TEST_LIBRARIES} test_support GTest::gmock_main GTest::gmock GTest::gtest
    Threads::Threads)
  # Named as the suites name them: a value's bytes are as long as a screen is wide, and others in every run.
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES
    PROPERTIES TIMEOUT ${TEST_TIMEOUT} LABELS "${TEST_LABELS}")
endfunction()
