# Platform interfaces: liblog everywhere, bionic's property getter on Android and a host
# implementation of it elsewhere.
if(ANDROID)
  find_library(ZY_LOG_LIBRARY log REQUIRED)
  add_library(zy_android_log INTERFACE)
  target_link_libraries(zy_android_log INTERFACE ${ZY_LOG_LIBRARY})
else()
  # Debian's android-liblog-dev: header under /usr/include/android, library under .../android.
  find_path(ZY_LOG_INCLUDE_DIR android/log.h PATHS /usr/include/android
            NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  find_library(ZY_LOG_LIBRARY log PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
               NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  add_library(zy_android_log INTERFACE)
  target_include_directories(zy_android_log SYSTEM INTERFACE ${ZY_LOG_INCLUDE_DIR})
  target_link_libraries(zy_android_log INTERFACE ${ZY_LOG_LIBRARY})
endif()
