# Debian packages (`cpack` in the build directory, or the `package` target):
#   libdrlib4      runtime: the shared object; depends on libc6 only
#   libdrlib-dev   header, static archive, CMake package, pkg-config file, example
#   python3-drlib  the ctypes module (architecture all)
#   drlib-tools    simulator, replay, CSV converter, plot script and the format documents
# Each carries the MIT licence as /usr/share/doc/<package>/copyright.
# The architecture is the target's, not the build machine's: a cross build
# directory yields armhf packages.

set(DRLIB_DEB_ARCH_BY_TRIPLE
    x86_64-linux-gnu=amd64 arm-linux-gnueabihf=armhf aarch64-linux-gnu=arm64
    i686-linux-gnu=i386 i386-linux-gnu=i386 arm-linux-gnueabi=armel)
set(_drlib_deb_arch "")
foreach(pair ${DRLIB_DEB_ARCH_BY_TRIPLE})
  string(REPLACE "=" ";" pair "${pair}")
  list(GET pair 0 _triple)
  list(GET pair 1 _arch)
  if(DRLIB_MULTIARCH STREQUAL _triple)
    set(_drlib_deb_arch ${_arch})
  endif()
endforeach()
if(NOT _drlib_deb_arch AND NOT CMAKE_CROSSCOMPILING)
  execute_process(COMMAND dpkg --print-architecture
                  OUTPUT_VARIABLE _drlib_deb_arch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT _drlib_deb_arch)
  message(WARNING "drlib: no Debian architecture known for '${DRLIB_MULTIARCH}'; set CPACK_DEBIAN_PACKAGE_ARCHITECTURE")
endif()

set(DRLIB_DEB_RUNTIME libdrlib${PROJECT_VERSION_MAJOR})
set(DRLIB_DEB_RELEASE 1)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME drlib)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "the drlib authors")
set(DRLIB_MAINTAINER "drlib authors <drlib-authors@users.noreply.github.com>" CACHE STRING
    "Maintainer field of the Debian packages")
set(CPACK_PACKAGE_CONTACT "${DRLIB_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${DRLIB_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev python)
if(DRLIB_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${DRLIB_DEB_RELEASE})
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${_drlib_deb_arch})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${DRLIB_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# shlibs file and the ldconfig calls (needs `file` and readelf when packing).
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "GNSS/IMU tilt compensation for survey poles - shared library
libdrlib fuses a survey pole's RTK GNSS fixes with its MEMS IMU samples and
reports attitude, tilt and the pole-tip position with its accuracy.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libdrlib-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "${DRLIB_DEB_RUNTIME} (= ${PROJECT_VERSION}-${DRLIB_DEB_RELEASE})")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "GNSS/IMU tilt compensation for survey poles - development files
The C headers drlib.h (hosts) and drlib_toolkit.h (the exported toolkit),
the static library, the CMake package (drlib::drlib),
the pkg-config file and an example host.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-drlib)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3, ${DRLIB_DEB_RUNTIME} (>= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "GNSS/IMU tilt compensation for survey poles - Python module
The drlib module (ctypes, standard library only): replay an input log
through libdrlib and iterate over the tilt statuses.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME drlib-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION science)
# Statically linked with the library; C++ runtime from the system.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libc6, libgcc-s1, libstdc++6")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "python3, python3-matplotlib")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "GNSS/IMU tilt compensation for survey poles - tools
drlib-sim simulates survey-pole sessions, drlib-replay replays input logs
through the library (accuracy report, tilt-status CSV, NMEA GGA/GST),
drlib-csv2log converts GNSS and IMU CSV files into input logs, drlib-plot
draws a replay; with the log, truth and CSV format documents.")

# The licence, as Debian's machine-readable copyright file, in every package.
configure_file(${PROJECT_SOURCE_DIR}/packaging/copyright.in ${PROJECT_BINARY_DIR}/copyright @ONLY)
foreach(pair runtime=${DRLIB_DEB_RUNTIME} dev=libdrlib-dev python=python3-drlib tools=drlib-tools)
  string(REPLACE "=" ";" pair "${pair}")
  list(GET pair 0 _component)
  list(GET pair 1 _package)
  if(_component STREQUAL tools AND NOT DRLIB_BUILD_TOOLS)
    continue()
  endif()
  install(FILES ${PROJECT_BINARY_DIR}/copyright DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${_package}
          COMPONENT ${_component})
endforeach()

# The runtime package's libc6 version is the newest GLIBC_ symbol version the
# shared object references, read when the packages are made.
file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/drlib-cpack-options.cmake CONTENT "
if(CPACK_GENERATOR STREQUAL \"DEB\")
  execute_process(COMMAND \"${CMAKE_READELF}\" -V --wide \"$<TARGET_FILE:drlib>\"
                  OUTPUT_VARIABLE _versions RESULT_VARIABLE _rc)
  if(NOT _rc EQUAL 0)
    message(FATAL_ERROR \"cannot read the symbol versions of $<TARGET_FILE:drlib>\")
  endif()
  string(REGEX MATCHALL \"GLIBC_[0-9]+(\\\\.[0-9]+)+\" _versions \"\${_versions}\")
  set(_newest 2.0)
  foreach(v \${_versions})
    string(REPLACE GLIBC_ \"\" v \"\${v}\")
    if(v VERSION_GREATER _newest)
      set(_newest \${v})
    endif()
  endforeach()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS \"libc6 (>= \${_newest})\")
endif()
")
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/drlib-cpack-options.cmake)

include(CPack)
