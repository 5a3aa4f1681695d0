# The library as its consumers see it: installed into a scratch prefix and
# built against with CMake and pkg-config; the Python module against the C host.
# (Sanitizer builds need their runtime in every consumer: not tested there.)
if(NOT DRLIB_INSTALL OR DRLIB_SANITIZE)
  return()
endif()

find_program(DRLIB_PKG_CONFIG NAMES pkg-config pkgconf)
set(_drlib_install_env CC=${CMAKE_C_COMPILER} READELF=${CMAKE_READELF} PKG_CONFIG=${DRLIB_PKG_CONFIG})
if(CMAKE_CROSSCOMPILING)
  set(_drlib_toolchain ${CMAKE_TOOLCHAIN_FILE})
  if(NOT IS_ABSOLUTE "${_drlib_toolchain}")
    if(EXISTS ${CMAKE_BINARY_DIR}/${_drlib_toolchain})
      set(_drlib_toolchain ${CMAKE_BINARY_DIR}/${_drlib_toolchain})
    else()
      set(_drlib_toolchain ${PROJECT_SOURCE_DIR}/${_drlib_toolchain})
    endif()
  endif()
  string(REPLACE ";" " " _drlib_emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
  list(APPEND _drlib_install_env "TOOLCHAIN=${_drlib_toolchain}" "EMULATOR=${_drlib_emulator}")
endif()

if(DRLIB_BUILD_EXAMPLES AND TARGET drlib-sim)
  set(_drlib_install_log ${PROJECT_BINARY_DIR}/examples/tilt_host_survey.log)
endif()
add_test(NAME install_consumers
  COMMAND ${CMAKE_COMMAND} -E env ${_drlib_install_env}
          bash ${CMAKE_CURRENT_SOURCE_DIR}/test_install.sh ${PROJECT_BINARY_DIR} ${_drlib_install_log})
if(_drlib_install_log)
  set_tests_properties(install_consumers PROPERTIES FIXTURES_REQUIRED tilt_host_log)
endif()

# Debian's interpreter first: the module needs nothing beyond its standard library.
find_program(DRLIB_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
find_program(DRLIB_PYTHON NAMES python3)
if(DRLIB_PYTHON AND NOT CMAKE_CROSSCOMPILING AND TARGET drlib-sim AND TARGET drlib-replay)
  add_test(NAME python_module
    COMMAND ${DRLIB_PYTHON} -m unittest discover -s ${PROJECT_SOURCE_DIR}/python/tests -v)
  set_tests_properties(python_module PROPERTIES ENVIRONMENT
    "PYTHONPATH=${PROJECT_SOURCE_DIR}/python;PYTHONDONTWRITEBYTECODE=1;DRLIB_LIBRARY=$<TARGET_FILE:drlib>;DRLIB_SIM=$<TARGET_FILE:drlib-sim>;DRLIB_REPLAY=$<TARGET_FILE:drlib-replay>")
endif()
