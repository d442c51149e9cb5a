# One place for the warning set; QUENDAL_WARNINGS_AS_ERRORS is on in CI.
option(QUENDAL_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)

function(quendal_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(QUENDAL_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
