# The files that let other programs build against an installed ZtDBTools: a CMake package
# (config, version and exported targets) and a pkg-config file. Included from the top-level
# CMakeLists.txt after the library target and its install rule.
include(CMakePackageConfigHelpers)

set(ZT_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZtDBTools)
install(EXPORT ZtDBToolsTargets NAMESPACE ZtDBTools:: DESTINATION ${ZT_CMAKE_PACKAGE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ZtDBToolsConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ZtDBToolsConfig.cmake INSTALL_DESTINATION ${ZT_CMAKE_PACKAGE_DIR})
# Releases of one major version keep the interface: a program built for 7.x takes any later 7.y.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZtDBToolsConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZtDBToolsConfig.cmake
  ${PROJECT_BINARY_DIR}/ZtDBToolsConfigVersion.cmake DESTINATION ${ZT_CMAKE_PACKAGE_DIR})

# The pkg-config file finds its prefix from its own place (${pcfiledir}), so that a tree
# installed with `cmake --install --prefix DIR`, or moved afterwards, still points at itself.
set(ZT_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
  set(ZT_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
  set(ZT_PC_LIBDIR ${CMAKE_INSTALL_FULL_LIBDIR})
  set(ZT_PC_INCLUDEDIR ${CMAKE_INSTALL_FULL_INCLUDEDIR})
else()
  file(RELATIVE_PATH pc_to_prefix /${ZT_PC_DIR} /)
  string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
  set(ZT_PC_PREFIX "\${pcfiledir}/${pc_to_prefix}")
  set(ZT_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(ZT_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
# The drivers are named for a static link alone (Libs.private), as plain libraries rather than
# Requires.private: pkg-config hands the Cflags of a private requirement to every consumer, and
# would refuse to answer where a driver's development files are missing, although the headers
# need none of them and a program linking the shared library never sees them.
set(ZT_PC_LIBS_PRIVATE "-lsqlite3 -lpq -lodbc -lpugixml -lxml2 -pthread")
foreach(lib IN LISTS CMAKE_DL_LIBS)
  string(APPEND ZT_PC_LIBS_PRIVATE " -l${lib}")
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/ztdbtools.pc.in ${PROJECT_BINARY_DIR}/ztdbtools.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ztdbtools.pc DESTINATION ${ZT_PC_DIR})
