# Installs the library component of a build into a temporary prefix, then
# builds a C program against it twice, through find_package(parvex) and
# through pkg-config, and runs both.
# Usage: cmake -DBUILD_DIR=... -DWORK_DIR=... -DSOURCE=<main.c> -DCONSUMER_DIR=...
#              -DCC=<c compiler> -DPKG_CONFIG=<pkg-config> -DGENERATOR=... -P install_test.cmake
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix} --component library)

# What a package must hold, wherever GNUInstallDirs put the library.
file(GLOB_RECURSE installed RELATIVE ${prefix} ${prefix}/*)
foreach(want include/parvex_distortion_correction.h include/parvex_border_fill.h
        parvexConfig.cmake parvexConfigVersion.cmake parvexTargets.cmake pkgconfig/parvex.pc
        libparvex_distortion_correction.so)
  string(REGEX MATCH "(^|/|;)${want}(;|$)" found "${installed}")
  if(NOT found)
    message(FATAL_ERROR "not installed: ${want}\ninstalled: ${installed}")
  endif()
endforeach()
string(REGEX MATCH "[^;]*/pkgconfig/parvex.pc" pc "${installed}")
get_filename_component(pcdir ${prefix}/${pc} DIRECTORY)
get_filename_component(libdir ${pcdir} DIRECTORY)

# find_package: the imported target brings the include folder and the
# library (its folder lands in the program's run path).
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake -G ${GENERATOR} -DCMAKE_C_COMPILER=${CC}
    -DCMAKE_PREFIX_PATH=${prefix} -DCONSUMER_SOURCE=${SOURCE})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake)
run(${WORK_DIR}/cmake/consumer)
message(STATUS "find_package consumer: ${last_output}")

# pkg-config, with the prefix found from the .pc file's own place.
set(ENV{PKG_CONFIG_PATH} ${pcdir})
set(ENV{PKG_CONFIG_LIBDIR} ${pcdir})
run(${PKG_CONFIG} --modversion parvex)
if(NOT last_output MATCHES "^1\\.0\\.0")
  message(FATAL_ERROR "parvex.pc gives version ${last_output}")
endif()
run(${PKG_CONFIG} --cflags --libs parvex)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CC} -std=c11 ${SOURCE} ${flags} -o ${WORK_DIR}/consumer_pc)
set(ENV{LD_LIBRARY_PATH} ${libdir})
run(${WORK_DIR}/consumer_pc)
message(STATUS "pkg-config consumer: ${last_output}")
