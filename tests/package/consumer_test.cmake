# Installs the built library into a fresh prefix, then configures, builds
# and runs the consumer project against it, found with FIND_WITH.
foreach(variable BUILD_DIR SOURCE_DIR WORK_DIR FIND_WITH)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "${variable} is not set")
  endif()
endforeach()

# Optional: CONSUMER_CMAKE_ARGS for the consumer's configure step and
# EMULATOR to run it with, for cross and sanitized builds.
set(CONSUMER_CMAKE_ARGS)
set(EMULATOR)
if(DEFINED SETTINGS)
  include("${SETTINGS}")
endif()

file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${output}")
  endif()
  set(last_output "${output}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")
set(environment)
if(FIND_WITH STREQUAL "pkg-config")
  file(GLOB pc_dirs "${prefix}/lib*/pkgconfig" "${prefix}/lib/*/pkgconfig")
  list(JOIN pc_dirs ":" pc_path)
  set(environment ${CMAKE_COMMAND} -E env "PKG_CONFIG_PATH=${pc_path}")
endif()
run(${environment} ${CMAKE_COMMAND} -S "${SOURCE_DIR}" -B "${WORK_DIR}/build"
    "-DCMAKE_PREFIX_PATH=${prefix}" "-DQUENDAL_FIND_WITH=${FIND_WITH}" ${CONSUMER_CMAKE_ARGS})
run(${CMAKE_COMMAND} --build "${WORK_DIR}/build")
file(GLOB library_dirs "${prefix}/lib*" "${prefix}/lib/*")
list(JOIN library_dirs ":" library_path)
run(${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${library_path}" ${EMULATOR}
    "${WORK_DIR}/build/consumer")
if(NOT last_output MATCHES "installed libQuendal works \\(module 1\\)")
  message(FATAL_ERROR "unexpected output: ${last_output}")
endif()
message(STATUS "${last_output}")

# The drop-in, when the build has one: AddressSanitizer and ThreadSanitizer
# replace malloc themselves, so the program's blocks are theirs there.
if(EXISTS "${BUILD_DIR}/src/malloc/libQuendalMalloc.so")
  if(NOT EXISTS "${WORK_DIR}/build/consumer_malloc")
    message(FATAL_ERROR "the package's drop-in was not found by ${FIND_WITH}")
  endif()
  run(${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${library_path}" ${EMULATOR}
      "${WORK_DIR}/build/consumer_malloc")
  set(expected "installed drop-in works \\(pooled\\)")
  if(CONSUMER_SANITIZED)
    set(expected "installed drop-in works")
  endif()
  if(NOT last_output MATCHES "${expected}")
    message(FATAL_ERROR "unexpected output of the drop-in consumer: ${last_output}")
  endif()
  message(STATUS "${last_output}")
endif()
