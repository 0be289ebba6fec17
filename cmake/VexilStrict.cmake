# Warnings are errors on everything the project writes.
function(vexil_strict target)
  target_compile_features(${target} PRIVATE cxx_std_17)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()
