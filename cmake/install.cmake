# What `cmake --install` gives: header, library, CMake package and pkg-config file.
include(GNUInstallDirs)
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
