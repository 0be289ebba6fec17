# vexil_compile_effects(TARGET name OUTPUT_DIR dir SOURCES a.fx b.fx [DEFINES N=V...] [INCLUDES dirs...])
# Compiles effect sources to .fxo files with vexil-fxc (run under Wine); `name` is a custom target
# that other targets depend on.
function(vexil_compile_effects)
  cmake_parse_arguments(FX "" "TARGET;OUTPUT_DIR" "SOURCES;DEFINES;INCLUDES" ${ARGN})
  if(NOT FX_OUTPUT_DIR)
    set(FX_OUTPUT_DIR ${CMAKE_BINARY_DIR}/bin)
  endif()
  set(flags)
  foreach(define IN LISTS FX_DEFINES)
    list(APPEND flags -D ${define})
  endforeach()
  foreach(dir IN LISTS FX_INCLUDES)
    list(APPEND flags -I ${dir})
  endforeach()
  set(outputs)
  foreach(source IN LISTS FX_SOURCES)
    get_filename_component(absolute ${source} ABSOLUTE)
    get_filename_component(stem ${source} NAME_WE)
    set(output ${FX_OUTPUT_DIR}/${stem}.fxo)
    add_custom_command(
      OUTPUT ${output}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${FX_OUTPUT_DIR}
      COMMAND ${VEXIL_WINE_TOOL} $<TARGET_FILE:vexil-fxc> ${absolute} -o ${output} ${flags}
      DEPENDS vexil-fxc ${absolute}
      COMMENT "Compiling effect ${source}"
      VERBATIM)
    list(APPEND outputs ${output})
  endforeach()
  add_custom_target(${FX_TARGET} ALL DEPENDS ${outputs})
endfunction()
