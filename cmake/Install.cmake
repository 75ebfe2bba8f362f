# Headers of both kinds go flat into include/gridloom, those of the formats into formats/ below it; find_package(Gridloom) and pkg-config find them.
# All paths in what is installed are relative: a prefix may be moved.

include(CMakePackageConfigHelpers)

set(gridloom_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Gridloom)

file(GLOB gridloom_public_headers CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/contracts/*.h ${PROJECT_SOURCE_DIR}/PrivateInterfaces/*.h)
install(FILES ${gridloom_public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/gridloom)
file(GLOB gridloom_format_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/formats/*.h)
install(FILES ${gridloom_format_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/gridloom/formats)
install(TARGETS gridloom_contracts gridloom_formats gridloom EXPORT GridloomTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

# find_package(Gridloom)
install(EXPORT GridloomTargets NAMESPACE Gridloom:: DESTINATION ${gridloom_package_dir})
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/GridloomConfig.cmake.in
    ${PROJECT_BINARY_DIR}/GridloomConfig.cmake
    INSTALL_DESTINATION ${gridloom_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/GridloomConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/GridloomConfig.cmake
              ${PROJECT_BINARY_DIR}/GridloomConfigVersion.cmake
    DESTINATION ${gridloom_package_dir})

# pkg-config gridloom: from the folder of the .pc file back to the prefix, and from there down again.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE gridloom_pc_to_prefix)
set(gridloom_pc_libdir "\${prefix}")
cmake_path(APPEND gridloom_pc_libdir ${CMAKE_INSTALL_LIBDIR})
set(gridloom_pc_includedir "\${prefix}")
cmake_path(APPEND gridloom_pc_includedir ${CMAKE_INSTALL_INCLUDEDIR})
configure_file(${PROJECT_SOURCE_DIR}/cmake/gridloom.pc.in ${PROJECT_BINARY_DIR}/gridloom.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/gridloom.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
