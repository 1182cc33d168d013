# Usage: cmake -DNM=<nm> -DLIBRARY=<libparvex_distortion_correction.so> -P check_symbols.cmake
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
message(STATUS "exports: ${exported}")
