# Compares the dynamic symbols that LIBRARY defines with the names listed in
# EXPECTED and fails, printing both differences, unless they are the same set.
# Run with: cmake -DNM=<nm> -DLIBRARY=<libQuendal.so> -DEXPECTED=<list> -P <this>
# EXPECTED may name several lists joined with "|"; SIZE_T, when set,
# replaces "@SIZE_T@" in them (size_t's demangled type).
cmake_minimum_required(VERSION 3.25)
foreach(variable NM LIBRARY EXPECTED)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "${variable} is not set")
  endif()
endforeach()

execute_process(COMMAND "${NM}" -D -C --defined-only "${LIBRARY}"
  RESULT_VARIABLE result OUTPUT_VARIABLE nm_output ERROR_VARIABLE nm_error)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${NM} failed (${result}): ${nm_error}")
endif()

# Names the linker defines in every shared object on some toolchains; they are
# not part of the library's interface.
set(linker_names _init _fini _edata _end __bss_start __bss_start__ __bss_end__
  __end__ _bss_end__)

string(REPLACE "\n" ";" nm_lines "${nm_output}")
set(exported)
foreach(line IN LISTS nm_lines)
  # "<address> <type> <demangled name>"; the name may contain spaces.
  if(line MATCHES "^[0-9a-fA-F]+ [A-Za-z] (.+)$")
    set(name "${CMAKE_MATCH_1}")
    # Instrumented builds add runtime names: AddressSanitizer one
    # __odr_asan.<name> per exported variable, gcov its __gcov_* state and
    # mangle_path.
    if(NOT name IN_LIST linker_names AND NOT name MATCHES "^(__odr_asan|__gcov_|mangle_path$)")
      list(APPEND exported "${name}")
    endif()
  endif()
endforeach()
list(REMOVE_DUPLICATES exported)
list(SORT exported)

string(REPLACE "|" ";" expected_files "${EXPECTED}")
set(expected_lines)
foreach(expected_file IN LISTS expected_files)
  file(STRINGS "${expected_file}" file_lines)
  list(APPEND expected_lines ${file_lines})
endforeach()
if(DEFINED SIZE_T)
  list(TRANSFORM expected_lines REPLACE "@SIZE_T@" "${SIZE_T}")
endif()
set(expected)
foreach(line IN LISTS expected_lines)
  string(STRIP "${line}" line)
  if(NOT line STREQUAL "" AND NOT line MATCHES "^#")
    list(APPEND expected "${line}")
  endif()
endforeach()
list(REMOVE_DUPLICATES expected)
list(SORT expected)

set(missing ${expected})
list(REMOVE_ITEM missing ${exported})
set(extra ${exported})
list(REMOVE_ITEM extra ${expected})

if(missing OR extra)
  set(report "")
  foreach(name IN LISTS missing)
    string(APPEND report "- ${name}\n")
  endforeach()
  foreach(name IN LISTS extra)
    string(APPEND report "+ ${name}\n")
  endforeach()
  # Printed unformatted so that every name stays on one line.
  message("The exported symbols of ${LIBRARY} differ from ${EXPECTED}\n"
    "(- listed but not exported, + exported but not listed):\n${report}")
  message(FATAL_ERROR "exported symbols differ from the list")
endif()
list(LENGTH exported count)
message(STATUS "${count} exported names match ${EXPECTED}")
