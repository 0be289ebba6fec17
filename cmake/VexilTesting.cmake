# GoogleTest from Debian's sources, built with the cross compiler.
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
set(gtest_disable_pthreads OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)

# vexil_add_gtest(NAME name SOURCES files... [LIBS targets...] [TIMEOUT seconds])
# One executable per suite, one Wine process per executable.
function(vexil_add_gtest)
  cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS" ${ARGN})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 300)
  endif()
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE vexil_test_main ${T_LIBS})
  vexil_strict(${T_NAME})
  add_test(NAME ${T_NAME} COMMAND ${T_NAME} --gtest_color=no
           WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  set_tests_properties(${T_NAME} PROPERTIES TIMEOUT ${T_TIMEOUT}
                       ENVIRONMENT "VEXIL_SOURCE_DIR=${CMAKE_SOURCE_DIR}")
endfunction()
