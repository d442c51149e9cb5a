# GoogleTest: the installed package, or its sources (cross builds need a copy
# compiled for the target).
option(QUENDAL_GTEST_FROM_SOURCE "Build GoogleTest from /usr/src/googletest" OFF)
if(NOT QUENDAL_GTEST_FROM_SOURCE)
  find_package(GTest QUIET)
endif()
if(NOT TARGET GTest::gtest)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  # Newer GoogleTest sources define the namespaced names themselves.
  foreach(library gtest gtest_main gmock)
    if(NOT TARGET GTest::${library})
      add_library(GTest::${library} ALIAS ${library})
    endif()
  endforeach()
endif()
include(GoogleTest)

# One gtest binary per area; every TEST becomes its own CTest test, so each
# runs in a process of its own (the library has process-global lazy state).
function(quendal_add_gtest name)
  cmake_parse_arguments(arg "NO_MAIN" "TEST_PREFIX" "SOURCES;LIBRARIES;DEFINITIONS;ENVIRONMENT" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  if(arg_NO_MAIN)
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gtest GTest::gmock)
  else()
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gtest_main GTest::gmock)
  endif()
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(${name} PRIVATE ${arg_DEFINITIONS})
  set_target_properties(${name} PROPERTIES CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON)
  quendal_set_warnings(${name})
  # Programs the tests start themselves run under the same emulator.
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    list(APPEND arg_ENVIRONMENT "QUENDAL_TEST_EMULATOR=${emulator}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    TEST_PREFIX "${arg_TEST_PREFIX}"
    PROPERTIES TIMEOUT 300 ENVIRONMENT "${arg_ENVIRONMENT}")
endfunction()
