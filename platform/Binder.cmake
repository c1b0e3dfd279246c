# SPDX-License-Identifier: Apache-2.0
#
# libbinder and servicemanager from the unpatched source that scripts/fetch-binder.sh
# fetches.

set(VUS_FRAMEWORKS_NATIVE "${CMAKE_SOURCE_DIR}/build/downloads/frameworks-native"
    CACHE PATH "Unpacked source of android-platform-frameworks-native")
set(binder "${VUS_FRAMEWORKS_NATIVE}/libs/binder")
if(NOT EXISTS "${binder}/Parcel.cpp")
  message(FATAL_ERROR "libbinder's source is missing: run scripts/fetch-binder.sh")
endif()

set(binder_sources
    Binder BpBinder BufferedTextOutput Debug IInterface IPCThreadState IPermissionController
    IResultReceiver IServiceManager IShellCallback Parcel PersistableBundle ProcessState Static
    Status TextOutput Value)
list(TRANSFORM binder_sources PREPEND "${binder}/")
list(TRANSFORM binder_sources APPEND ".cpp")
set(state_base "${VUS_FRAMEWORKS_NATIVE}/libs/binderthreadstate")

add_library(vus_binder STATIC ${binder_sources} "${state_base}/IPCThreadStateBase.cpp")
# -w: not our code. NDEBUG: one of its assertions does not compile.
target_compile_options(vus_binder PRIVATE -w)
target_compile_definitions(vus_binder PRIVATE NDEBUG SIZE_T_MAX=SIZE_MAX)
# Compiled in one go: nobody edits it. Sources with options of their own are left out.
set_target_properties(vus_binder PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
# Its private header has no include guard.
set_source_files_properties("${binder}/PersistableBundle.cpp" PROPERTIES
                            SKIP_UNITY_BUILD_INCLUSION ON)
# Without __ANDROID__ every ioctl to the driver is compiled out of this one source and
# calls fail at run time; with it anywhere else, class layouts change.
# tests/unit/binder notices when it is lost.
set_source_files_properties("${binder}/IPCThreadState.cpp" PROPERTIES
                            COMPILE_DEFINITIONS __ANDROID__)
# What it does that it had better not is not ours to mend; what it does to memory is looked at.
if(VUS_SANITIZE MATCHES "undefined")
  target_compile_options(vus_binder PRIVATE -fno-sanitize=undefined)
endif()
# A precompiled header must come first: it begins with the prelude.
set(needs_prelude
    "$<AND:$<COMPILE_LANGUAGE:CXX>,$<NOT:$<BOOL:$<TARGET_PROPERTY:VUS_USES_PCH>>>>")
target_compile_options(vus_binder PUBLIC
  "$<${needs_prelude}:SHELL:-include ${CMAKE_CURRENT_SOURCE_DIR}/compat/libbinder_prelude.h>")
target_include_directories(vus_binder SYSTEM PUBLIC
  "${binder}/include" "${CMAKE_CURRENT_SOURCE_DIR}/compat")
target_include_directories(vus_binder PRIVATE "${state_base}/include")
target_link_libraries(vus_binder PUBLIC
  vus_platform vus_backtrace Android::utils Android::cutils Android::base Android::log
  Threads::Threads)

set(manager "${VUS_FRAMEWORKS_NATIVE}/cmds/servicemanager")
add_executable(servicemanager "${manager}/service_manager.c" "${manager}/binder.c")
set(selinux "${CMAKE_CURRENT_SOURCE_DIR}/compat-servicemanager")
target_compile_options(servicemanager PRIVATE -w "SHELL:-include ${selinux}/selinux/android.h")
target_include_directories(servicemanager SYSTEM PRIVATE "${selinux}")
target_link_libraries(servicemanager PRIVATE Android::cutils Android::log)
