# What `cmake --install` puts in place: the shared library (with its SONAME links), the public
# header, a CMake package giving the imported target ZyBodyTracking::ZyBodyTracking, and a
# pkg-config file. The internal static library and the test support are never installed.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZY_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZyBodyTracking
    CACHE STRING "Where the CMake package files are installed, relative to the prefix")

if(NOT ANDROID AND NOT CMAKE_CROSSCOMPILING)
  # Debian's liblog lives in .../android, off the loader's path: the installed library keeps
  # that directory in its RUNPATH, as the build tree's copy does. (The cross build links a liblog
  # of its own that is never installed; on Android liblog is a system library.)
  set_target_properties(ZyBodyTracking PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
endif()

install(TARGETS ZyBodyTracking EXPORT ZyBodyTrackingTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
          COMPONENT Runtime NAMELINK_COMPONENT Development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime)
install(FILES ${PROJECT_SOURCE_DIR}/include/ZyBodyTracking.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development)

install(EXPORT ZyBodyTrackingTargets NAMESPACE ZyBodyTracking::
  DESTINATION ${ZY_INSTALL_CMAKEDIR} COMPONENT Development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ZyBodyTrackingConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/ZyBodyTrackingConfig.cmake
  INSTALL_DESTINATION ${ZY_INSTALL_CMAKEDIR})
# 1.x callers link against any later 1.y: the SONAME changes with the major version only.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/ZyBodyTrackingConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/ZyBodyTrackingConfig.cmake
              ${PROJECT_BINARY_DIR}/package/ZyBodyTrackingConfigVersion.cmake
  DESTINATION ${ZY_INSTALL_CMAKEDIR} COMPONENT Development)

# The .pc file finds the prefix from its own place (${pcfiledir}), so the installed tree can be
# moved, or installed with `cmake --install --prefix`, without rewriting it.
file(RELATIVE_PATH ZY_PC_PREFIX_FROM_PCDIR
     ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH ZY_PC_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH ZY_PC_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
string(REGEX REPLACE "/$" "" ZY_PC_PREFIX_FROM_PCDIR "${ZY_PC_PREFIX_FROM_PCDIR}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/ZyBodyTracking.pc.in
               ${PROJECT_BINARY_DIR}/package/ZyBodyTracking.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/ZyBodyTracking.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
