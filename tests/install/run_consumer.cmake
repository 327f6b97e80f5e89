# Installs the build tree into a fresh staging prefix, checks what landed there, then builds and
# runs tests/install/consumer against that prefix. Driven by CTest (tests/install/CMakeLists.txt).
function(zy_run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    list(JOIN ARGN " " cmd)
    message(FATAL_ERROR "failed (${rc}): ${cmd}\n${out}\n${err}")
  endif()
  set(zy_last_output "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${ZY_STAGE} ${ZY_CONSUMER_BUILD})
zy_run(${CMAKE_COMMAND} --install ${ZY_BUILD_DIR} --prefix ${ZY_STAGE} --config ${ZY_CONFIG})

# The library under its full version with the SONAME link and the development link, the
# header, the CMake package and the pkg-config file.
string(REGEX MATCH "^[0-9]+" major "${ZY_VERSION}")
set(lib ${ZY_STAGE}/${ZY_LIBDIR}/libZyBodyTracking.so)
foreach(f ${lib}.${ZY_VERSION} ${lib}.${major} ${lib}
          ${ZY_STAGE}/${ZY_INCLUDEDIR}/ZyBodyTracking.h
          ${ZY_STAGE}/${ZY_LIBDIR}/cmake/ZyBodyTracking/ZyBodyTrackingConfig.cmake
          ${ZY_STAGE}/${ZY_LIBDIR}/cmake/ZyBodyTracking/ZyBodyTrackingConfigVersion.cmake
          ${ZY_STAGE}/${ZY_LIBDIR}/cmake/ZyBodyTracking/ZyBodyTrackingTargets.cmake
          ${ZY_STAGE}/${ZY_LIBDIR}/pkgconfig/ZyBodyTracking.pc)
  if(NOT EXISTS ${f})
    message(FATAL_ERROR "not installed: ${f}")
  endif()
endforeach()
foreach(link ${lib}.${major} ${lib})
  if(NOT IS_SYMLINK ${link})
    message(FATAL_ERROR "${link} should be a symbolic link")
  endif()
endforeach()
# Internal pieces stay out of the installed tree.
file(GLOB_RECURSE installed RELATIVE ${ZY_STAGE} ${ZY_STAGE}/*)
foreach(f ${installed})
  if(f MATCHES "zy_internal|gtest|\\.a$")
    message(FATAL_ERROR "installed an internal file: ${f}")
  endif()
endforeach()
# The package files must not point back into the build or source tree: the staged copy has to
# work on its own.
file(GLOB package_files ${ZY_STAGE}/${ZY_LIBDIR}/cmake/ZyBodyTracking/*.cmake
                        ${ZY_STAGE}/${ZY_LIBDIR}/pkgconfig/*.pc)
foreach(f ${package_files})
  file(READ ${f} text)
  foreach(tree ${ZY_BUILD_DIR} ${ZY_SOURCE_DIR})
    string(FIND "${text}" "${tree}" at)
    if(NOT at EQUAL -1)
      message(FATAL_ERROR "${f} refers to ${tree}")
    endif()
  endforeach()
endforeach()

# Configure the consumer with nothing but the staging prefix to find the library by.
zy_run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${ZY_STAGE}/${ZY_LIBDIR}/pkgconfig
       ${CMAKE_COMMAND} -S ${ZY_CONSUMER_SOURCE} -B ${ZY_CONSUMER_BUILD} -G ${ZY_GENERATOR}
       -DCMAKE_C_COMPILER=${ZY_C_COMPILER} -DCMAKE_BUILD_TYPE=${ZY_CONFIG}
       -DCMAKE_PREFIX_PATH=${ZY_STAGE} -DZY_EXPECT_PREFIX=${ZY_STAGE})
zy_run(${CMAKE_COMMAND} --build ${ZY_CONSUMER_BUILD} --config ${ZY_CONFIG})

foreach(exe consumer_package consumer_pkgconfig)
  file(GLOB_RECURSE found ${ZY_CONSUMER_BUILD}/${exe} ${ZY_CONSUMER_BUILD}/*/${exe})
  list(GET found 0 path)
  zy_run(${path})
  if(NOT zy_last_output MATCHES "libZyBodyTracking consumer: ok")
    message(FATAL_ERROR "${exe} printed: ${zy_last_output}")
  endif()
  message(STATUS "${exe}: ${zy_last_output}")
endforeach()
