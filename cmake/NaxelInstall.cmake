# Installation: the shared library, the kit for drivers, their headers, a CMake package and pkg-config files. The headers lie
# in a folder of their own, because the platform's folder names are short and common.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Naxel)
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/libnaxel)

install(TARGETS Naxel NaxelTesting EXPORT NaxelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${header_dir})
if(TARGET NaxelOvs)
  install(TARGETS NaxelOvs EXPORT NaxelTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${header_dir})
endif()
if(TARGET naxel_conformance)
  install(TARGETS naxel_conformance RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
if(TARGET NaxelStatic)
  install(TARGETS NaxelStatic EXPORT NaxelTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
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
set(pc_packages naxel naxel-testing)
if(TARGET NaxelOvs)
  list(APPEND pc_packages naxel-ovs)
endif()
foreach(package IN LISTS pc_packages)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
