# Installing and packaging. Three parts, one Debian package each (cpack -G DEB):
#   runtime  librux_client.so.<major> (librux-client<major>)
#   dev      headers, the librux_client.so link, the CMake package (rux::client),
#            rux_client.pc and the documentation (librux-client-dev)
#   tools    rux-sim, ruxctl and rux-logdecrypt with their manual pages (rux-client-tools)
# Every package carries the licence as its copyright file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(RUX_RUNTIME_PACKAGE librux-client${PROJECT_VERSION_MAJOR})
set(RUX_DEV_PACKAGE librux-client-dev)
set(RUX_TOOLS_PACKAGE rux-client-tools)
set(RUX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/rux_client)

# The name applications link, installed or inside this build (examples/).
set_target_properties(rux_client PROPERTIES EXPORT_NAME client)
add_library(rux::client ALIAS rux_client)

# --- runtime ------------------------------------------------------------------------
install(TARGETS rux_client EXPORT rux_client
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)

# --- development --------------------------------------------------------------------
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/rux DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT dev)
install(EXPORT rux_client NAMESPACE rux:: FILE rux_clientTargets.cmake
  DESTINATION ${RUX_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/rux_clientConfig.cmake.in
  ${PROJECT_BINARY_DIR}/rux_clientConfig.cmake INSTALL_DESTINATION ${RUX_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/rux_clientConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/rux_clientConfig.cmake
  ${PROJECT_BINARY_DIR}/rux_clientConfigVersion.cmake
  DESTINATION ${RUX_CMAKE_DIR} COMPONENT dev)
# rux_client.pc names the prefix it is installed under, so it is written when installing.
configure_file(${PROJECT_SOURCE_DIR}/cmake/InstallPkgConfig.cmake.in
  ${PROJECT_BINARY_DIR}/InstallPkgConfig.cmake @ONLY)
install(SCRIPT ${PROJECT_BINARY_DIR}/InstallPkgConfig.cmake COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/docs/ipc-wire-format.md
  ${PROJECT_SOURCE_DIR}/docs/log-file-format.md
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${RUX_DEV_PACKAGE} COMPONENT dev)

# --- tools --------------------------------------------------------------------------
# Each tool finds the installed library beside it and the Android log library where
# the system keeps it; its manual page is docs/man/<tool>.1 (or tools/<tool>/<tool>.1)
# and its documentation docs/<tool>.md, when they exist.
set(RUX_INSTALLED_TOOLS)
foreach(tool rux-sim ruxctl rux-logdecrypt)
  if(NOT TARGET ${tool})
    continue()
  endif()
  list(APPEND RUX_INSTALLED_TOOLS ${tool})
  set_target_properties(${tool} PROPERTIES
    INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR};${ANDROID_LOG_LIBRARY_DIR}")
  install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  foreach(page ${PROJECT_SOURCE_DIR}/docs/man/${tool}.1
               ${PROJECT_SOURCE_DIR}/tools/${tool}/${tool}.1)
    if(EXISTS ${page})
      install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
      break()
    endif()
  endforeach()
  if(EXISTS ${PROJECT_SOURCE_DIR}/docs/${tool}.md)
    install(FILES ${PROJECT_SOURCE_DIR}/docs/${tool}.md
      DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${RUX_TOOLS_PACKAGE} COMPONENT tools)
  endif()
endforeach()

# --- licence ------------------------------------------------------------------------
set(RUX_COMPONENTS runtime dev)
set(RUX_PACKAGES ${RUX_RUNTIME_PACKAGE} ${RUX_DEV_PACKAGE})
if(RUX_INSTALLED_TOOLS)
  list(APPEND RUX_COMPONENTS tools)
  list(APPEND RUX_PACKAGES ${RUX_TOOLS_PACKAGE})
endif()
foreach(component package IN ZIP_LISTS RUX_COMPONENTS RUX_PACKAGES)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE RENAME copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endforeach()

# --- Debian packages ----------------------------------------------------------------
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME librux-client)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "librux_client maintainers <librux-client@localhost>")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
# Installed under DESTDIR with the final prefix, so rux_client.pc names /usr.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL ${RUX_COMPONENTS})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)  # as Debian ships binaries
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# Dependencies on shared libraries come from dpkg-shlibdeps; the runtime package says
# which version of it later packages need.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${RUX_RUNTIME_PACKAGE})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Client library for the Rux service
librux_client.so: the C interface through which applications talk to the Rux service.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${RUX_DEV_PACKAGE})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)  # no binaries: nothing for dpkg-shlibdeps to find
set(CPACK_COMPONENT_DEV_DESCRIPTION "Client library for the Rux service - development files
Headers, the CMake package rux_client (target rux::client) and rux_client.pc.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${RUX_TOOLS_PACKAGE})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
if(TARGET ruxctl)
  set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)  # ruxctl links the library
endif()
set(RUX_TOOL_rux-sim "rux-sim, a simulator of the service")
set(RUX_TOOL_ruxctl "ruxctl, a command line to the service")
set(RUX_TOOL_rux-logdecrypt "rux-logdecrypt, which reads encrypted log files back")
set(RUX_TOOLS_DESCRIPTION)
foreach(tool ${RUX_INSTALLED_TOOLS})
  list(APPEND RUX_TOOLS_DESCRIPTION "${RUX_TOOL_${tool}}")
endforeach()
list(JOIN RUX_TOOLS_DESCRIPTION "; " RUX_TOOLS_DESCRIPTION)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "Tools for the Rux service client library\n${RUX_TOOLS_DESCRIPTION}.")
include(CPack)
