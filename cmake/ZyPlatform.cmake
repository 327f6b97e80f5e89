# Platform interfaces. Logging: the platform's liblog on Android, Debian's android-liblog-dev on
# a Linux host, a small liblog of our own in the arm64 cross build (below). System properties:
# src/common/zy_sysprop.h (bionic's getter on Android, a host implementation elsewhere).
add_library(zy_android_log INTERFACE)
if(ANDROID)
  # Android only: the NDK's liblog, found in the sysroot of the chosen API level.
  find_library(ZY_LOG_LIBRARY log REQUIRED)
  target_link_libraries(zy_android_log INTERFACE ${ZY_LOG_LIBRARY})
  return()
endif()

# Debian's header is <android/android/log.h> under /usr/include; it is architecture-independent,
# so the cross build uses the host's copy too.
find_path(ZY_LOG_INCLUDE_DIR android/log.h PATHS /usr/include/android
          NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
target_include_directories(zy_android_log SYSTEM INTERFACE ${ZY_LOG_INCLUDE_DIR})

if(CMAKE_CROSSCOMPILING)
  # The arm64 cross build does not use Debian's multiarch android-liblog-dev:arm64: installing
  # it pulls in libc6:arm64, whose libc.so.6 is a different build from the cross toolchain's
  # ld.so, and qemu-aarch64 -L then mixes the two and hangs every threaded program unless the
  # emulator also overrides LD_LIBRARY_PATH; it also changes the machine's apt configuration.
  # This liblog implements the same calls with the host behaviour the tests rely on (default
  # INFO threshold, the logger hook), and needs nothing beyond the cross compiler.
  add_library(zy_cross_log SHARED ${CMAKE_CURRENT_LIST_DIR}/cross_liblog/liblog.c)
  target_include_directories(zy_cross_log PRIVATE ${ZY_LOG_INCLUDE_DIR})
  target_link_libraries(zy_cross_log PRIVATE zy_options)
  set_target_properties(zy_cross_log PROPERTIES OUTPUT_NAME log SOVERSION 0
    C_VISIBILITY_PRESET default LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/cross_liblog)
  target_link_libraries(zy_android_log INTERFACE zy_cross_log)
else()
  # Debian's library sits under .../android, outside the loader's search path: CMake puts that
  # directory into the build tree's RUNPATH, and the install keeps it (src/CMakeLists.txt).
  find_library(ZY_LOG_LIBRARY log PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
               NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  target_link_libraries(zy_android_log INTERFACE ${ZY_LOG_LIBRARY})
endif()
