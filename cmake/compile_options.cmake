# Compiler settings shared by every target of the project.
find_package(Threads REQUIRED)

# Results must be bit-identical on every target: no fused multiply-add, no
# fast-math reassociation.
add_compile_options(-Wall -Wextra -ffp-contract=off -fno-fast-math)
if(PVX_WERROR)
  add_compile_options(-Werror)
endif()

if(PVX_SANITIZE STREQUAL "address")
  set(_pvx_san -fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_compile_options(${_pvx_san})
  add_link_options(${_pvx_san})
elseif(PVX_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ warns that it cannot instrument stand-alone fences; the code pairs
    # them with acquire/release atomics, which it does instrument.
    add_compile_options(-Wno-tsan)
  endif()
  add_link_options(-fsanitize=thread)
elseif(NOT PVX_SANITIZE STREQUAL "")
  message(FATAL_ERROR "PVX_SANITIZE must be '', 'address' or 'thread'")
endif()

# Options for library code only: no exceptions, no RTTI, hidden symbols.
set(PVX_LIBRARY_OPTIONS -fno-exceptions -fno-rtti -fno-threadsafe-statics
    -fvisibility=hidden -fvisibility-inlines-hidden)

# The sanitizer build with clang also builds the fuzz targets (tests/fuzz):
# library code is instrumented for libFuzzer's coverage feedback.
set(PVX_FUZZ OFF)
if(PVX_SANITIZE STREQUAL "address" AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  set(PVX_FUZZ ON)
  list(APPEND PVX_LIBRARY_OPTIONS -fsanitize=fuzzer-no-link
       -fsanitize-coverage-ignorelist=${PROJECT_SOURCE_DIR}/tests/fuzz/coverage_ignore.txt)
endif()

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(arm|armv7)")
  set(PVX_TARGET_ARM ON)
else()
  set(PVX_TARGET_ARM OFF)
endif()
