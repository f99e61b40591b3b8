# Installation: the shared library, its headers, a CMake package and a pkg-config file. The headers lie
# in a folder of their own, because the platform's folder names are short and common.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Naxel)
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/libnaxel)

install(TARGETS Naxel EXPORT NaxelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${header_dir})
install(EXPORT NaxelTargets NAMESPACE Naxel:: DESTINATION ${package_dir})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/NaxelConfig.cmake.in
  ${PROJECT_BINARY_DIR}/NaxelConfig.cmake INSTALL_DESTINATION ${package_dir})
# Before 1.0, every minor version may break the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/NaxelConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/NaxelConfig.cmake ${PROJECT_BINARY_DIR}/NaxelConfigVersion.cmake
  DESTINATION ${package_dir})

set(pc_defines "")
if(NAXEL_ATOMIC_REFCOUNT)
  set(pc_defines " -DMOX_ATOMIC_REFCOUNT=1")
endif()
# The prefix is found from where the file lies, so that an installed tree can be moved.
file(RELATIVE_PATH pc_up /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" pc_up "${pc_up}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/naxel.pc.in ${PROJECT_BINARY_DIR}/naxel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/naxel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
