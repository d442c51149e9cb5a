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
  # GoogleTest is not what the tests check: it builds in half the time
  # without debug information and with fewer optimisations.
  foreach(library gtest gtest_main)
    target_compile_options(${library} PRIVATE -O1 -g0)
  endforeach()
endif()
include(GoogleTest)

# GoogleTest's header is parsed once per build instead of once per test
# source: every gtest binary reuses the precompiled header of a donor built
# with the same definitions, the internal archives' large-file ones or none.
# GCC refuses a header built with other settings (-Winvalid-pch, an error
# with -Werror), so a binary in the wrong group fails to build.
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/quendal_gtest_pch.cpp CONTENT "")
foreach(donor quendal_gtest_pch quendal_gtest_pch_internal)
  add_library(${donor} OBJECT ${PROJECT_BINARY_DIR}/quendal_gtest_pch.cpp)
  target_link_libraries(${donor} PRIVATE GTest::gtest)
  target_precompile_headers(${donor} PRIVATE <gtest/gtest.h>)
  set_target_properties(${donor} PROPERTIES CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON)
  quendal_set_warnings(${donor})
endforeach()
target_link_libraries(quendal_gtest_pch_internal PRIVATE quendal_internal_interface)

# One gtest binary per area; every TEST becomes its own CTest test, so each
# runs in a process of its own (the library has process-global lazy state).
# The sources of a binary compile as one unit: GoogleTest's templates and the
# library's inline code are then compiled once per binary, not once per file.
# COST: roughly the seconds the binary's longest test takes under qemu; CTest
# starts the costliest tests first, so that none is left running alone at the
# end of a parallel run. PROCESSORS: the cores each test of the binary takes.
function(quendal_add_gtest name)
  cmake_parse_arguments(arg "NO_MAIN" "TEST_PREFIX;COST;PROCESSORS" "SOURCES;LIBRARIES;DEFINITIONS;ENVIRONMENT"
    ${ARGN})
  if(NOT arg_COST)
    set(arg_COST 0)
  endif()
  if(NOT arg_PROCESSORS)
    set(arg_PROCESSORS 1)
  endif()
  add_executable(${name} ${arg_SOURCES})
  if(arg_NO_MAIN)
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gtest)
  else()
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gtest_main)
  endif()
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(${name} PRIVATE ${arg_DEFINITIONS})
  set_target_properties(${name} PROPERTIES CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON UNITY_BUILD ON)
  quendal_set_warnings(${name})
  if(arg_LIBRARIES MATCHES "quendal_internal|quendal_scripted_platform")
    target_precompile_headers(${name} REUSE_FROM quendal_gtest_pch_internal)
  else()
    target_precompile_headers(${name} REUSE_FROM quendal_gtest_pch)
  endif()
  # Programs the tests start themselves run under the same emulator.
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    list(APPEND arg_ENVIRONMENT "QUENDAL_TEST_EMULATOR=${emulator}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    TEST_PREFIX "${arg_TEST_PREFIX}"
    PROPERTIES TIMEOUT 300 COST ${arg_COST} PROCESSORS ${arg_PROCESSORS} ENVIRONMENT "${arg_ENVIRONMENT}")
endfunction()

# A program over the shared library and the gtest binary that runs it, also
# under valgrind where the program can run there: not when it is built with
# AddressSanitizer or ThreadSanitizer, whose runtimes valgrind cannot host.
# The test sees the program's path as PROGRAM_MACRO, and QUENDAL_VALGRIND
# (empty when valgrind cannot be used) with QUENDAL_VALGRIND_MISSING, the
# reason to give when skipping (tests/support/valgrind_program.h).
function(quendal_add_program_test name)
  cmake_parse_arguments(arg "" "PROGRAM;PROGRAM_MACRO" "PROGRAM_SOURCES;SOURCES" ${ARGN})
  add_executable(${arg_PROGRAM} ${arg_PROGRAM_SOURCES})
  target_link_libraries(${arg_PROGRAM} PRIVATE Quendal::Quendal)
  set_target_properties(${arg_PROGRAM} PROPERTIES CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON)
  quendal_set_warnings(${arg_PROGRAM})
  set(valgrind "")
  if(QUENDAL_SANITIZE MATCHES "address|thread")
    set(missing "skipped: the program is built with a sanitizer whose runtime valgrind cannot host")
  else()
    find_program(QUENDAL_VALGRIND valgrind)
    if(QUENDAL_VALGRIND)
      set(valgrind ${QUENDAL_VALGRIND})
    endif()
    set(missing "skipped: valgrind is not installed (Debian package valgrind)")
  endif()
  quendal_add_gtest(${name}
    SOURCES ${arg_SOURCES}
    LIBRARIES quendal_test_support
    DEFINITIONS ${arg_PROGRAM_MACRO}="$<TARGET_FILE:${arg_PROGRAM}>"
      QUENDAL_VALGRIND="${valgrind}" QUENDAL_VALGRIND_MISSING="${missing}")
  add_dependencies(${name} ${arg_PROGRAM})
endfunction()
