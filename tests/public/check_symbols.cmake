# Usage: cmake -DNM=<nm> -DLIBRARY=<libparvex_distortion_correction.so> [-DSANITIZED=1] -P check_symbols.cmake
set(expected
  parvex_DistortionCorrection_distort parvex_DistortionCorrection_distortEx
  parvex_DistortionCorrection_finalize parvex_DistortionCorrection_getBufferSize
  parvex_DistortionCorrection_getCorrectionStrength parvex_DistortionCorrection_getCropRect
  parvex_DistortionCorrection_getRecommendedOutputSize parvex_DistortionCorrection_getVersion
  parvex_DistortionCorrection_initialize parvex_DistortionCorrection_process
  parvex_DistortionCorrection_processEx parvex_DistortionCorrection_setCorrectionStrength
  parvex_DistortionCorrection_setCropRect parvex_DistortionCorrection_setInputCenter
  parvex_DistortionCorrection_setOutputImageSize parvex_DistortionCorrection_setZoomRatio
  parvex_DistortionCorrection_start)

execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE defined RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REGEX MATCHALL "[^\n]+" lines "${defined}")
set(exported)
foreach(line IN LISTS lines)
  # Keep code and data symbols; the version node (type A) is not ours.
  if(line MATCHES "^[0-9a-fA-F]+ [TtDdBbRrWwVv] ([^ @]+)")
    list(APPEND exported ${CMAKE_MATCH_1})
  endif()
endforeach()
list(SORT exported)
list(SORT expected)
if(NOT exported STREQUAL expected)
  message(FATAL_ERROR "exported symbols differ.\nexpected: ${expected}\nfound: ${exported}")
endif()

execute_process(COMMAND ${NM} -D --undefined-only ${LIBRARY} OUTPUT_VARIABLE undefined)
foreach(forbidden malloc calloc realloc free _Znwj _Znwm _Znaj _Znam _ZdlPv _ZdaPv
        __cxa_throw __cxa_allocate_exception __cxa_begin_catch _Unwind_Resume __gxx_personality_v0)
  if(undefined MATCHES "[ \n]${forbidden}(@|\n|$)")
    message(FATAL_ERROR "the library needs ${forbidden}:\n${undefined}")
  endif()
endforeach()

# Every function the library imports, on every target. Android's C library
# (bionic) provides each of them; the README lists them for NDK users. A new
# import fails here until it is checked against bionic and added to both.
set(allowed_imports
  abort clock_gettime getauxval hypot memcpy memmove memset rintf strcmp syscall sysconf
  pthread_cond_broadcast pthread_cond_destroy pthread_cond_init pthread_cond_signal
  pthread_cond_timedwait pthread_cond_wait pthread_create pthread_join pthread_self
  pthread_mutex_destroy pthread_mutex_init pthread_mutex_lock pthread_mutex_trylock pthread_mutex_unlock
  pthread_mutexattr_destroy pthread_mutexattr_init pthread_mutexattr_settype
  # Compiler support that the toolchain's own runtime may leave to the C
  # library; __getauxval: GCC's out-of-line atomics on AArch64 glibc;
  # __aeabi_*: 32-bit Arm's run-time helpers (divisions, conversions, copies).
  __stack_chk_fail __stack_chk_guard __errno_location __getauxval
  __aeabi_idiv __aeabi_uidiv __aeabi_idivmod __aeabi_uidivmod __aeabi_ldivmod __aeabi_uldivmod
  __aeabi_d2lz __aeabi_d2ulz __aeabi_l2d __aeabi_ul2d __aeabi_f2lz __aeabi_l2f
  __aeabi_memcpy __aeabi_memcpy4 __aeabi_memcpy8 __aeabi_memmove __aeabi_memset __aeabi_memclr
  __aeabi_memclr4 __aeabi_memclr8)
if(SANITIZED)
  # The sanitizer runtimes add imports of their own; the list holds for the
  # plain builds.
  message(STATUS "exports: ${exported}")
  return()
endif()
string(REGEX MATCHALL "[^\n]+" lines "${undefined}")
set(imports)
foreach(line IN LISTS lines)
  # Strong undefined symbols only; weak ones (w/v) are optional hooks of the startup code.
  if(line MATCHES "^ *U ([^ @]+)")
    list(APPEND imports ${CMAKE_MATCH_1})
  endif()
endforeach()
set(unexpected ${imports})
list(REMOVE_ITEM unexpected ${allowed_imports})
if(unexpected)
  message(FATAL_ERROR "the library imports functions that are not on its list: ${unexpected}\n"
                      "(check that Android's C library has them, then add them here and to the README)")
endif()
message(STATUS "exports: ${exported}")
message(STATUS "imports: ${imports}")
