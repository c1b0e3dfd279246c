# SPDX-License-Identifier: Apache-2.0
#
# How tests are registered. A CTest test is one program (or one file of pytest); its label is the
# suite of ./test that it belongs to. It leaves a JUnit report of the tests in it below report/,
# from where ./test takes it; checks that are one test by themselves leave none.

option(VUS_CHECKS "Register the tests that need no programs of this build tree" OFF)

set(VUS_REPORTS "${CMAKE_BINARY_DIR}/report")
file(MAKE_DIRECTORY "${VUS_REPORTS}")

# The address layout of newer kernels is too random for ThreadSanitizer of clang 14.
set(VUS_TEST_LAUNCHER)
if(VUS_SANITIZE MATCHES "thread")
  execute_process(COMMAND setarch -R true RESULT_VARIABLE no_setarch OUTPUT_QUIET ERROR_QUIET)
  if(NOT no_setarch)
    set(VUS_TEST_LAUNCHER setarch -R)
  endif()
endif()

set(VUS_TEST_ENVIRONMENT
    ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1
    UBSAN_OPTIONS=print_stacktrace=1)

# vus_register_test(NAME LABEL SECONDS COMMAND...)
function(vus_register_test name label seconds)
  add_test(NAME ${name} COMMAND ${ARGN} WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}")
  set_tests_properties(${name} PROPERTIES LABELS ${label} TIMEOUT ${seconds})
endfunction()

# vus_register_program(TARGET [PARTS]): a program of googletest; in parts, which run side by side, if
# it takes long. The slowest takes a tenth of the limit under ThreadSanitizer.
function(vus_register_program target)
  set(parts 1)
  if(ARGC GREATER 1)
    set(parts ${ARGV1})
  endif()
  foreach(part RANGE 1 ${parts})
    math(EXPR index "${part} - 1")
    set(name ${target})
    if(parts GREATER 1)
      string(APPEND name _${part})
    endif()
    vus_register_test(${name} unit 900 ${VUS_TEST_LAUNCHER} $<TARGET_FILE:${target}>)
    set(environment "${VUS_TEST_ENVIRONMENT}" "GTEST_OUTPUT=xml:${VUS_REPORTS}/${name}.xml"
        GTEST_TOTAL_SHARDS=${parts} GTEST_SHARD_INDEX=${index})
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "${environment}")
  endforeach()
endfunction()

# vus_without_threads(): the calling directory's program starts no thread. ThreadSanitizer has nothing
# to look at in it, and its tree does not have it. (scripts/programs_for.py looks for this line.)
macro(vus_without_threads)
  if(VUS_SANITIZE MATCHES "thread")
    return()
  endif()
endmacro()

# vus_register_pytest(NAME LABEL SECONDS ARGUMENT...): files of pytest. Debian's interpreter, to
# which Debian's pytest belongs, not the first one on the path.
function(vus_register_pytest name label seconds)
  vus_register_test(${name} ${label} ${seconds}
    /usr/bin/python3 -B -m pytest -ra -p no:cacheprovider -o junit_family=xunit1
    "--junitxml=${VUS_REPORTS}/${name}.xml" ${ARGN})
  # What pytest answers when its filter selects nothing.
  set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 5)
endfunction()
