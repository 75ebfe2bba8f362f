# Headers of both kinds go flat into include/gridloom; find_package(Gridloom) and pkg-config find them.

include(CMakePackageConfigHelpers)

file(GLOB GRIDLOOM_PUBLIC_HEADERS CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/contracts/*.h ${PROJECT_SOURCE_DIR}/PrivateInterfaces/*.h)
install(FILES ${GRIDLOOM_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/gridloom)
install(TARGETS gridloom_contracts gridloom EXPORT GridloomTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT GridloomTargets NAMESPACE Gridloom::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Gridloom)

configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/GridloomConfig.cmake.in
    ${PROJECT_BINARY_DIR}/GridloomConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Gridloom)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/GridloomConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/GridloomConfig.cmake
              ${PROJECT_BINARY_DIR}/GridloomConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Gridloom)

configure_file(${PROJECT_SOURCE_DIR}/cmake/gridloom.pc.in ${PROJECT_BINARY_DIR}/gridloom.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/gridloom.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
