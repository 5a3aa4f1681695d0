# The library in a host's process: a host's own functions of the same names
# as the library's, another library's versioned strlcpy, a glibc 2.38 header,
# and a checkout without ../shared.

# drlib.h beside the strlcpy declaration of glibc 2.38 and later, as C99 and C++17.
foreach(lang "c99;${CMAKE_C_COMPILER};-std=c99" "cxx17;${CMAKE_CXX_COMPILER};-x;c++;-std=c++17")
  list(POP_FRONT lang name)
  add_test(NAME header_beside_glibc_strlcpy_${name} COMMAND ${lang} -pedantic-errors -Wall -Wextra -Werror
           -fsyntax-only -I${PROJECT_SOURCE_DIR}/include ${CMAKE_CURRENT_SOURCE_DIR}/header_beside_strlcpy.c)
endforeach()

# Without ../shared the tests that read it report themselves skipped.
if(TARGET test_scenarios)
  add_test(NAME shared_dir_absent_skips
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/check_without_shared.sh ${DRLIB_SO_CHECK_SCRIPT}
            ${DRLIB_VERSION_SCRIPT} $<TARGET_FILE:test_scenarios> ExternalSession ${CMAKE_CROSSCOMPILING_EMULATOR}
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
endif()

if(DRLIB_SANITIZE)
  # The checks of symbol binding below need a plain build's load order: a
  # sanitizer runtime loads first and interposes C library names itself.
  return()
endif()

# Another library's strlcpy under its own version node keeps its result with
# libdrlib.so first in the load order.
add_library(bsd_strlcpy SHARED bsd_strlcpy.c)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/bsd_strlcpy.map "BSDSTR_1 { global: strlcpy; bsd_copy; local: *; };\n")
target_link_options(bsd_strlcpy PRIVATE -Wl,--version-script=${CMAKE_CURRENT_BINARY_DIR}/bsd_strlcpy.map)
add_executable(host_strlcpy host_strlcpy.c)
target_link_libraries(host_strlcpy PRIVATE drlib bsd_strlcpy)
add_test(NAME host_keeps_versioned_strlcpy COMMAND host_strlcpy)

# A host that defines functions named like the library's and exports them
# (-rdynamic) prints the same tilt-status stream as the plain example host.
if(DRLIB_BUILD_EXAMPLES AND TARGET drlib-sim)
  add_executable(tilt_host_same_names ${PROJECT_SOURCE_DIR}/examples/tilt_host.c host_same_names.c)
  target_link_libraries(tilt_host_same_names PRIVATE drlib)
  set_target_properties(tilt_host_same_names PROPERTIES ENABLE_EXPORTS ON LINKER_LANGUAGE C)
  add_test(NAME host_same_names_same_stream
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/same_output.sh ${PROJECT_BINARY_DIR}/examples/tilt_host_survey.log
            $<TARGET_FILE:tilt_host> $<TARGET_FILE:tilt_host_same_names> ${CMAKE_CROSSCOMPILING_EMULATOR})
  set_tests_properties(host_same_names_same_stream PROPERTIES FIXTURES_REQUIRED tilt_host_log)
endif()
