# Windows programs of this tree run under Wine through generated wrappers: build/wine-run for
# tests and programs (display and persistent server, stopped by tools/wine/wine-down), and
# build/wine-tool for build steps (no display, and no server left running once the step ends).
# On Windows itself they run as they are, and the tests (built from Debian's GoogleTest sources)
# are left out.
if(CMAKE_HOST_WIN32)
  set(VEXIL_WINE_RUN "")
  set(VEXIL_WINE_TOOL "")
  return()
endif()
set(VEXIL_WINE_TOOLS ${CMAKE_SOURCE_DIR}/tools/wine)
foreach(wrapper wine-run wine-tool)
  configure_file(${VEXIL_WINE_TOOLS}/${wrapper}.in ${CMAKE_BINARY_DIR}/${wrapper} @ONLY
                 FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endforeach()
set(VEXIL_WINE_RUN ${CMAKE_BINARY_DIR}/wine-run)
set(VEXIL_WINE_TOOL ${CMAKE_BINARY_DIR}/wine-tool)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VEXIL_WINE_RUN})
