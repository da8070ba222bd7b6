# install.cmake - what `cmake --install` puts where: the shared object the
# host opens, the host kit's archive, both headers, a pkg-config file for
# each, a CMake package (find_package(rvtlsse42)) and the example hosts.
include(CMakePackageConfigHelpers)

set(VORN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/rvtlsse42)

install(TARGETS rvtlsse42 EXPORT rvtlsse42Targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS vorn_kit EXPORT rvtlsse42Targets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/vorn.h ${PROJECT_SOURCE_DIR}/include/vorn_kit.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT rvtlsse42Targets NAMESPACE rvtlsse42:: DESTINATION ${VORN_CMAKE_DIR})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/rvtlsse42Config.cmake.in
  ${PROJECT_BINARY_DIR}/rvtlsse42Config.cmake
  INSTALL_DESTINATION ${VORN_CMAKE_DIR}
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/rvtlsse42ConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/rvtlsse42Config.cmake ${PROJECT_BINARY_DIR}/rvtlsse42ConfigVersion.cmake
        DESTINATION ${VORN_CMAKE_DIR})

# pkg-config files find the prefix from their own place, so an installed tree
# can be moved or installed under another --prefix.
file(RELATIVE_PATH VORN_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" VORN_PC_TO_PREFIX "${VORN_PC_TO_PREFIX}")
foreach(pc rvtlsse42 vorn_kit)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
        PATTERN CMakeLists.txt EXCLUDE)
