# SPDX-License-Identifier: Apache-2.0
#
# Android's own libraries as Debian packages them: Android::base, Android::log,
# Android::utils, Android::cutils and Android::backtrace. Their headers are below
# include/android, the libraries below the multiarch directory's android/, which the
# dynamic linker does not search: every program gets a run path.

find_path(ANDROID_INCLUDE_DIR android-base/logging.h PATH_SUFFIXES android)
find_library(ANDROID_UTILS_LIBRARY utils PATH_SUFFIXES android)
if(NOT ANDROID_INCLUDE_DIR OR NOT ANDROID_UTILS_LIBRARY)
  message(FATAL_ERROR "Android's libraries are not installed: run scripts/setup-packages.sh")
endif()
get_filename_component(ANDROID_LIBRARY_DIR "${ANDROID_UTILS_LIBRARY}" DIRECTORY)

if(CMAKE_CROSSCOMPILING)
  # The run path names places on the target, not in the sysroot.
  set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
  set(CMAKE_INSTALL_RPATH "/usr/lib/vus;/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android")
  # libbacktrace's own needs, found on the target through its run path.
  add_link_options("-Wl,-rpath-link,${ANDROID_LIBRARY_DIR}"
                   "-Wl,-rpath-link,${CMAKE_SYSROOT}/usr/lib/p7zip")
else()
  set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib/vus;${ANDROID_LIBRARY_DIR}")
endif()

foreach(name IN ITEMS base log utils cutils backtrace)
  find_library(ANDROID_${name}_LIBRARY ${name} PATHS "${ANDROID_LIBRARY_DIR}"
               NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  add_library(Android::${name} UNKNOWN IMPORTED GLOBAL)
  set_target_properties(Android::${name} PROPERTIES
    IMPORTED_LOCATION "${ANDROID_${name}_LIBRARY}"
    INTERFACE_SYSTEM_INCLUDE_DIRECTORIES "${ANDROID_INCLUDE_DIR}"
    INTERFACE_INCLUDE_DIRECTORIES "${ANDROID_INCLUDE_DIR}")
endforeach()
set_property(TARGET Android::base APPEND PROPERTY INTERFACE_LINK_LIBRARIES Android::log)

find_package(Threads REQUIRED)
