# pvx_add_module(<name> [DEPENDS <module>...])
# Builds every .cpp file of the folder <name>/ (and its subfolders) into an
# object library pvx_<name>_objs and a static library pvx_<name>.
#
# Vector twins live in files named after their instruction set; on x86 each
# such file alone is compiled for that set (the library picks a twin at run
# time from the processor's features). Elsewhere they compile to nothing.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64|i[3-6]86)$")
  set(PVX_TARGET_X86 ON)
else()
  set(PVX_TARGET_X86 OFF)
endif()

function(pvx_add_module name)
  cmake_parse_arguments(ARG "" "" "DEPENDS" ${ARGN})
  file(GLOB_RECURSE _srcs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${name}/*.cpp)
  if(NOT _srcs)
    set(_srcs ${PROJECT_SOURCE_DIR}/cmake/empty.cpp)
  endif()
  if(PVX_TARGET_X86)
    foreach(src IN LISTS _srcs)
      if(src MATCHES "_ssse3\\.cpp$")
        set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS "-mssse3")
      elseif(src MATCHES "_sse41\\.cpp$")
        set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS "-msse4.1")
      elseif(src MATCHES "_avx2\\.cpp$")
        set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS "-mavx2")
      elseif(src MATCHES "_avx512vbmi\\.cpp$")
        set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS
          "-mavx2;-mavx512f;-mavx512bw;-mavx512vl;-mavx512vbmi")
      endif()
    endforeach()
  endif()
  add_library(pvx_${name}_objs OBJECT ${_srcs})
  target_include_directories(pvx_${name}_objs PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_compile_options(pvx_${name}_objs PRIVATE ${PVX_LIBRARY_OPTIONS})
  add_library(pvx_${name} STATIC $<TARGET_OBJECTS:pvx_${name}_objs>)
  target_include_directories(pvx_${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  set(_deps)
  foreach(d IN LISTS ARG_DEPENDS)
    list(APPEND _deps pvx_${d})
  endforeach()
  target_link_libraries(pvx_${name} PUBLIC ${_deps} Threads::Threads m)
endfunction()
