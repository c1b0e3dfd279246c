# SPDX-License-Identifier: Apache-2.0
#
# What is installed on a Linux host, and where; docs/linux-host.md tells what to do with it. What
# has a name that means something else to other systems (the service manager), or starts whatever it
# is called with (the daemon), is on nobody's path. The programs of the virtual device that read and
# set properties are not installed: on a host those are files.

include(GNUInstallDirs)

set(VUS_SYSTEMD_UNIT_DIR "lib/systemd/system" CACHE STRING "Where systemd looks for units")
set(private_dir "${CMAKE_INSTALL_LIBEXECDIR}/vus")

# install_program(TARGET DIRECTORY)
function(install_program target directory)
  if(NOT TARGET ${target})
    return()
  endif()
  install(TARGETS ${target} RUNTIME DESTINATION "${directory}")
  if(NOT CMAKE_CROSSCOMPILING)
    file(RELATIVE_PATH shared "/${directory}" "/lib/vus")
    set_target_properties(${target} PROPERTIES
      INSTALL_RPATH "$ORIGIN/${shared};${ANDROID_LIBRARY_DIR}")
  endif()
endfunction()

install_program(vusctl "${CMAKE_INSTALL_BINDIR}")
install_program(vus_hotplug "${CMAKE_INSTALL_SBINDIR}")
install_program(vusd "${private_dir}")
install_program(servicemanager "${private_dir}")
install(TARGETS vus_backtrace LIBRARY DESTINATION lib/vus NAMELINK_SKIP)

install(FILES share/usb_device_config.xsd DESTINATION "${CMAKE_INSTALL_DATADIR}/vus")
file(GLOB manual_pages CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/docs/man/*.[1-8]")
foreach(page IN LISTS manual_pages)
  string(REGEX MATCH "[1-8]$" section "${page}")
  install(FILES "${page}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}")
endforeach()

# Completions are the program's own answer. One for another machine cannot be asked: VUS_COMPLETIONS
# names a directory of what one for this machine has answered. The trees of the sanitizers are not
# for installing.
set(VUS_COMPLETIONS "" CACHE PATH "Completions that are there already: bash, zsh and fish")
set(completions "${VUS_COMPLETIONS}")
if(TARGET vusctl AND NOT completions AND NOT CMAKE_CROSSCOMPILING AND NOT VUS_SANITIZE AND NOT VUS_COVERAGE)
  set(completions "${CMAKE_BINARY_DIR}/completions")
  file(MAKE_DIRECTORY "${completions}")
  set(scripts)
  foreach(shell IN ITEMS bash zsh fish)
    add_custom_command(OUTPUT "${completions}/${shell}" DEPENDS vusctl VERBATIM
      COMMAND vusctl completion ${shell} > "${completions}/${shell}")
    list(APPEND scripts "${completions}/${shell}")
  endforeach()
  add_custom_target(vus_completions ALL DEPENDS ${scripts})
endif()
if(completions)
  set(data "${CMAKE_INSTALL_DATADIR}")
  install(FILES "${completions}/bash" RENAME vusctl DESTINATION "${data}/bash-completion/completions")
  install(FILES "${completions}/zsh" RENAME _vusctl DESTINATION "${data}/zsh/vendor-completions")
  install(FILES "${completions}/fish" RENAME vusctl.fish
          DESTINATION "${data}/fish/vendor_completions.d")
endif()

# The services. What they run is named by its full path.
set(VUS_BIN_DIR "${CMAKE_INSTALL_FULL_BINDIR}")
set(VUS_SBIN_DIR "${CMAKE_INSTALL_FULL_SBINDIR}")
set(VUS_PRIVATE_DIR "${CMAKE_INSTALL_FULL_LIBEXECDIR}/vus")
foreach(unit IN ITEMS vus-binder.service vus-servicemanager.service vusd.service vus-hotplug.service
        vus-alive.service vus-alive.timer)
  configure_file("packaging/systemd/${unit}.in" "${CMAKE_BINARY_DIR}/units/${unit}" @ONLY)
  install(FILES "${CMAKE_BINARY_DIR}/units/${unit}" DESTINATION "${VUS_SYSTEMD_UNIT_DIR}")
endforeach()
install(FILES packaging/sysusers.conf RENAME vus.conf DESTINATION lib/sysusers.d)
install(FILES packaging/tmpfiles.conf RENAME vus.conf DESTINATION lib/tmpfiles.d)
install(FILES packaging/modules-load.conf RENAME vus.conf DESTINATION lib/modules-load.d)
install(PROGRAMS packaging/binder-up packaging/open-door packaging/still-alive DESTINATION "${private_dir}")
