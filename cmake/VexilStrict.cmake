# Warnings are errors on everything the project writes.
function(vexil_strict target)
  target_compile_features(${target} PRIVATE cxx_std_17)
  if(MSVC)
    # No build here uses MSVC, so its warnings are shown rather than made errors.
    target_compile_options(${target} PRIVATE /W4)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
  endif()
endfunction()
