# Windows programs of this tree run under Wine through a generated wrapper (build/wine-run).
set(VEXIL_WINE_TOOLS ${CMAKE_SOURCE_DIR}/tools/wine)
configure_file(${VEXIL_WINE_TOOLS}/wine-run.in ${CMAKE_BINARY_DIR}/wine-run @ONLY
               FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(VEXIL_WINE_RUN ${CMAKE_BINARY_DIR}/wine-run)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VEXIL_WINE_RUN})
