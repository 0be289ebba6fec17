# Installed layout: include/ (zeb and VexilDX9 headers), bin/ (DLLs, tools), lib/ (import
# libraries) and lib/cmake/VexilDX9 (the package: find_package(VexilDX9 CONFIG)).
include(CMakePackageConfigHelpers)

install(TARGETS Zebcore VexilDX9 EXPORT VexilDX9Targets
        RUNTIME DESTINATION bin
        LIBRARY DESTINATION bin
        ARCHIVE DESTINATION lib)
# The drop-in D3DX is for Wine users only (Windows has Microsoft's): a folder of its own, with its note.
install(TARGETS d3dx9_37 EXPORT VexilDX9Targets RUNTIME DESTINATION wine ARCHIVE DESTINATION lib)
install(FILES ${CMAKE_SOURCE_DIR}/d3dx/README.md DESTINATION wine)
install(FILES ${CMAKE_SOURCE_DIR}/README.md DESTINATION .)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs DESTINATION .)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/base/zeb DESTINATION include FILES_MATCHING PATTERN "*.h")
file(GLOB VEXIL_PUBLIC_HEADERS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/VexilDX9/*.h)
list(FILTER VEXIL_PUBLIC_HEADERS EXCLUDE REGEX "/SiblingLog\\.h$")
install(FILES ${VEXIL_PUBLIC_HEADERS} DESTINATION include/VexilDX9)

install(EXPORT VexilDX9Targets NAMESPACE VexilDX9:: DESTINATION lib/cmake/VexilDX9)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/VexilDX9Config.cmake.in
  ${CMAKE_BINARY_DIR}/VexilDX9Config.cmake INSTALL_DESTINATION lib/cmake/VexilDX9)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/VexilDX9ConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/VexilDX9Config.cmake ${CMAKE_BINARY_DIR}/VexilDX9ConfigVersion.cmake
        DESTINATION lib/cmake/VexilDX9)
