# Install rules. Components:
#   runtime  the shared object and its SONAME link
#   dev      header, link-time name, static archive, CMake package, pkg-config file,
#            the example with its build files
#   tools    drlib-sim, drlib-replay, drlib-csv2log, the plot script, the format documents
#   python   the ctypes module
# `cmake --install <build> [--prefix DIR]` installs them all; each component is
# one Debian package (packaging.cmake).

# The Debian multiarch triple of the target (x86_64-linux-gnu, arm-linux-gnueabihf):
# a cross compiler's libraries live outside the multiarch tree, so CMake may not
# know it on its own.
if(NOT DRLIB_MULTIARCH)
  execute_process(COMMAND ${CMAKE_C_COMPILER} -dumpmachine
                  OUTPUT_VARIABLE _drlib_triple OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  set(DRLIB_MULTIARCH "${_drlib_triple}" CACHE STRING "Debian multiarch triple of the target")
endif()
# Under /usr the libraries go to the multiarch directory, so that the amd64
# and armhf packages can be installed side by side.
if(NOT DEFINED CMAKE_INSTALL_LIBDIR AND CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND DRLIB_MULTIARCH)
  set(CMAKE_INSTALL_LIBDIR "lib/${DRLIB_MULTIARCH}" CACHE PATH "Object code libraries (LIBDIR)")
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(DRLIB_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/drlib CACHE PATH
    "Where the CMake package files go")
set(DRLIB_INSTALL_PYTHONDIR lib/python3/dist-packages CACHE PATH
    "Where the Python module goes")
set(DRLIB_SONAME libdrlib.so.${PROJECT_VERSION_MAJOR})
set(DRLIB_STATIC_NAME libdrlib.a)

install(TARGETS drlib
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
# The archive carries the library's own name once installed, so that
# `-ldrlib` with `-static` (or `pkg-config --static`) finds it.
install(FILES $<TARGET_FILE:drlib_static> DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RENAME ${DRLIB_STATIC_NAME} COMPONENT dev)
# drlib.h is the host's header; drlib_toolkit.h declares the rest of what the
# shared object exports, for test harnesses and tools.
install(FILES ${PROJECT_SOURCE_DIR}/include/drlib.h ${PROJECT_SOURCE_DIR}/include/drlib_toolkit.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

# CMake package: find_package(drlib CONFIG) gives drlib::drlib (and drlib::drlib_static).
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/drlibConfig.cmake.in
  ${PROJECT_BINARY_DIR}/drlibConfig.cmake
  INSTALL_DESTINATION ${DRLIB_INSTALL_CMAKEDIR}
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/drlibConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/drlibConfig.cmake ${PROJECT_BINARY_DIR}/drlibConfigVersion.cmake
        DESTINATION ${DRLIB_INSTALL_CMAKEDIR} COMPONENT dev)

# pkg-config file, written at install time: the prefix is only known then
# (`cmake --install --prefix`, or /usr inside a package).
install(CODE "
  set(DRLIB_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  set(DRLIB_PC_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
  set(DRLIB_PC_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
  set(PROJECT_VERSION \"${PROJECT_VERSION}\")
  configure_file(\"${PROJECT_SOURCE_DIR}/packaging/drlib.pc.in\"
                 \"${PROJECT_BINARY_DIR}/pkgconfig/drlib.pc\" @ONLY)
  file(INSTALL DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig\"
       TYPE FILE FILES \"${PROJECT_BINARY_DIR}/pkgconfig/drlib.pc\")
" COMPONENT dev)

# The example host, with build files for the installed library.
install(FILES ${PROJECT_SOURCE_DIR}/examples/tilt_host.c
              ${PROJECT_SOURCE_DIR}/packaging/example/CMakeLists.txt
              ${PROJECT_SOURCE_DIR}/packaging/example/Makefile
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT dev)

if(DRLIB_BUILD_TOOLS)
  file(GLOB _drlib_tool_mains CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/drlib-*.cpp)
  foreach(src ${_drlib_tool_mains})
    get_filename_component(name ${src} NAME_WE)
    install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  endforeach()
  install(PROGRAMS ${PROJECT_SOURCE_DIR}/tools/drlib_plot.py DESTINATION ${CMAKE_INSTALL_BINDIR}
          RENAME drlib-plot COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/log-format.md ${PROJECT_SOURCE_DIR}/docs/csv-input.md
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/drlib-tools COMPONENT tools)
endif()

install(FILES ${PROJECT_SOURCE_DIR}/python/drlib.py
        DESTINATION ${DRLIB_INSTALL_PYTHONDIR} COMPONENT python)
