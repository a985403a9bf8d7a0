# What `cmake --install` and `cpack` give: header, library, CMake package and pkg-config file; where they are built, the
# programs with manual pages and completion; who may use the USB, and a place for calibrations.
include(CMakePackageConfigHelpers)

install(TARGETS hxr_api EXPORT hxr_api-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/hxr_api.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/hxr_api)
install(EXPORT hxr_api-targets NAMESPACE hxr:: DESTINATION ${package_dir} FILE hxr_api-config.cmake)
write_basic_package_version_file(hxr_api-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hxr_api-config-version.cmake DESTINATION ${package_dir})

file(RELATIVE_PATH include_from_pkgconfig
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/hxr_api.pc.in hxr_api.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hxr_api.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Who may use units on the USB.
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  install(FILES cmake/70-hxr.rules DESTINATION lib/udev/rules.d)
endif()

get_property(programs GLOBAL PROPERTY HXR_PROGRAMS)
if(programs)
  install(TARGETS ${programs} DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(PROGRAMS tools/hxr-plot DESTINATION ${CMAKE_INSTALL_BINDIR})
  foreach(program ${programs})
    install(FILES cmake/hxr-completion.bash RENAME ${program}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  endforeach()

  # Manual pages are made of what the programs say themselves.
  find_program(HELP2MAN help2man)
  if(HELP2MAN AND NOT HXR_SANITIZE)
    set(pages)
    foreach(program ${programs})
      set(page ${CMAKE_BINARY_DIR}/man/${program}.1)
      add_custom_command(OUTPUT ${page} DEPENDS ${program}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man
        COMMAND ${HELP2MAN} --no-info --no-discard-stderr --output=${page} --source=hxr_api
          "--name=$<TARGET_PROPERTY:${program},HXR_PURPOSE>"
          --help-option=$<IF:$<BOOL:$<TARGET_PROPERTY:${program},HXR_COMMANDS>>,--help-all,--help> $<TARGET_FILE:${program}>
        COMMAND sed -i "/^\\.SH EXAMPLES/,$ { s/^\\.IP$/.IP\\n.nf/; s/^\\.PP$/.fi\\n.PP/; s/^\\.SS \"Exit status:\"$/.fi\\n.SH \"EXIT STATUS\"/ }" ${page}
        VERBATIM)
      list(APPEND pages ${page})
    endforeach()
    add_custom_target(manual_pages ALL DEPENDS ${pages})
    install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
endif()

# The calibrations that programs have fetched from units, for all users of this machine. An install that isn't for the whole
# machine leaves it alone: the library then keeps them in the folder where a program runs.
install(CODE [[
  if(CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?/?$")
    set(cache "$ENV{DESTDIR}/var/lib/Tarvenis/cal_files")
    file(MAKE_DIRECTORY "${cache}")
    file(CHMOD "${cache}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_WRITE GROUP_EXECUTE
      WORLD_READ WORLD_WRITE WORLD_EXECUTE)
    message(STATUS "For all users: ${cache}")
  endif()
]])

# `cpack` makes a package for Debian of it.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME hxr-api)
set(CPACK_PACKAGE_CONTACT "hxr_api developers <hxr_api@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Driver and programs for the HXR RF receiver")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "gnuplot-nox, umockdev, bash-completion")
set(CPACK_STRIP_FILES ON)
include(CPack)
