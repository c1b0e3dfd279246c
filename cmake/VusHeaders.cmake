# SPDX-License-Identifier: Apache-2.0
#
# Headers that are not ours, that nearly every source includes and that cost more than what is in
# it: compiled once a build tree. Every source still includes what it uses; the trees without
# VUS_PCH (release, arm64, coverage) tell.

option(VUS_PCH "Compile the headers that are not ours once" ON)

# vus_add_headers(NAME LIBRARY...): what NAME.h includes, with the flags of the calling directory.
function(vus_add_headers name)
  if(NOT VUS_PCH)
    return()
  endif()
  # The library is there for its headers alone.
  file(CONFIGURE OUTPUT ${name}_headers.cpp CONTENT "")
  add_library(${name}_headers OBJECT "${CMAKE_CURRENT_BINARY_DIR}/${name}_headers.cpp")
  set_target_properties(${name}_headers PROPERTIES VUS_USES_PCH ON)
  target_link_libraries(${name}_headers PRIVATE ${ARGN})
  target_precompile_headers(${name}_headers PRIVATE "${PROJECT_SOURCE_DIR}/cmake/headers/${name}.h")
endfunction()

# vus_compile_together(TARGET...): sources are compiled four at a time, except for release and
# coverage. More would make the wait after a change of one of them long.
function(vus_compile_together)
  if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo" AND NOT CMAKE_UNITY_BUILD)
    set_target_properties(${ARGN} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 4)
    foreach(target IN LISTS ARGN)
      target_compile_options(${target} PRIVATE -Wno-shadow)
    endforeach()
  endif()
endfunction()

# vus_use_headers(NAME TARGET...): the targets are compiled with the headers of NAME.
function(vus_use_headers name)
  if(TARGET ${name}_headers)
    set_target_properties(${ARGN} PROPERTIES VUS_USES_PCH ON)
    foreach(target IN LISTS ARGN)
      target_precompile_headers(${target} REUSE_FROM ${name}_headers)
    endforeach()
  endif()
endfunction()
