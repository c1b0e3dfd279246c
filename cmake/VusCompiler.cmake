# SPDX-License-Identifier: Apache-2.0
#
# How our own code is compiled. Warnings are errors under g++ 12 and clang 14 alike;
# code that is not ours (libbinder, aidl's output) opts out with -w where it is built,
# and the platform's headers are system headers.

set(VUS_SANITIZE "" CACHE STRING "Sanitizers to build with, comma separated (address,undefined or thread)")
option(VUS_COVERAGE "Instrument for gcov" OFF)
option(VUS_FUZZ "Instrument for fuzzing (clang only)" OFF)

add_compile_options(
  -Wall -Wextra -Wshadow -Wundef -Wvla -Wformat=2 -Wimplicit-fallthrough -Werror
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>)

# What is GUARDED_BY a mutex is touched with it only. The tests fill the daemon's tables directly,
# from one thread, and opt out.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety>)
endif()

# One model for programs and archives alike (there are no shared libraries), so that both can use
# the same precompiled headers.
add_compile_options(-fPIE)
add_link_options(-pie -fuse-ld=lld)
# A g++ for another machine looks for the linker under a name of its own; the one there is has it for
# all machines. Not -B of a folder of programs: it would find the assembler of this machine there.
if(CMAKE_CROSSCOMPILING AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  find_program(LLD_PROGRAM ld.lld REQUIRED)
  file(REAL_PATH "${LLD_PROGRAM}" lld)
  get_filename_component(lld_directory "${lld}" DIRECTORY)
  add_link_options("-B${lld_directory}")
endif()

# Source paths in binaries and logs are relative to the tree, so that a build does not
# depend on where it was made.
add_compile_options("-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=")

if(VUS_SANITIZE)
  # What a report names is functions and lines. More optimisation makes more to instrument.
  set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -gline-tables-only -DNDEBUG")
  set(CMAKE_C_FLAGS_RELWITHDEBINFO "${CMAKE_CXX_FLAGS_RELWITHDEBINFO}")
  add_compile_options(-fsanitize=${VUS_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VUS_SANITIZE})
endif()

if(VUS_COVERAGE)
  # Atomic counters: the tests run threads.
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

if(VUS_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "The fuzzers need clang: cmake --preset fuzz")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(NOT VUS_SANITIZE AND NOT VUS_COVERAGE)
  add_compile_options(-fstack-protector-strong)
  add_link_options(-Wl,-z,relro,-z,now)
  # Of libbinder a program needs a part.
  add_compile_options(-ffunction-sections -fdata-sections)
  add_link_options(-Wl,--gc-sections,--icf=safe)
  if(CMAKE_BUILD_TYPE MATCHES "Rel")
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
endif()

# Where files are compiled together, a local of one may have the name of a constant of another.
if(CMAKE_UNITY_BUILD)
  add_compile_options(-Wno-shadow)
endif()

# vus_compile_as_tests(): the calling directory holds test code, which is compiled far more often
# than it is run. What it tests keeps the flags of the build. A test that cannot hold under a
# sanitizer asks for VUS_SANITIZED.
macro(vus_compile_as_tests)
  if(NOT CMAKE_BUILD_TYPE STREQUAL "Release")
    add_compile_options("SHELL:-O0 -U_FORTIFY_SOURCE")
  endif()
  if(VUS_SANITIZE)
    add_compile_definitions(VUS_SANITIZED=)
  endif()
endmacro()
