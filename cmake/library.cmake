# The library, compiled once and linked twice: libdrlib.so for hosts and a
# static archive for the tests (which reach internal state the .so hides).
file(GLOB DRLIB_SOURCES CONFIGURE_DEPENDS
     ${PROJECT_SOURCE_DIR}/Alg_DR/src/*.cpp
     ${PROJECT_SOURCE_DIR}/utils/*.cpp)

add_library(drlib_obj OBJECT ${DRLIB_SOURCES})
set_target_properties(drlib_obj PROPERTIES
  POSITION_INDEPENDENT_CODE ON
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
# The library's own units leave the toolkit's strlcpy undeclared (only its
# definition, utils/strl_trs.cpp, declares it), so that they compile beside
# the strlcpy that <string.h> of glibc 2.38 and later declares.
target_compile_definitions(drlib_obj PRIVATE DRLIB_BUILDING DRLIB_TOOLKIT_NO_STRLCPY)
target_compile_options(drlib_obj PRIVATE ${DRLIB_WARNINGS}
  -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-asynchronous-unwind-tables)
# The filter kernels are short loops over small matrices; -O3 vectorises and
# unrolls them (about 5% fewer instructions per epoch than -O2, measured with
# scripts/bench.sh). Without -ffast-math no operation is reordered, so the
# results keep their bits on every target.
target_compile_options(drlib_obj PRIVATE $<$<CONFIG:Release,RelWithDebInfo>:-O3>)
target_include_directories(drlib_obj PUBLIC
  ${PROJECT_SOURCE_DIR}/include
  ${PROJECT_SOURCE_DIR}/Alg_DR/src
  ${PROJECT_SOURCE_DIR}/utils)

add_library(drlib SHARED $<TARGET_OBJECTS:drlib_obj>)
target_include_directories(drlib PUBLIC ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(drlib PRIVATE m)
# libdrlib.so.4 -> libdrlib.so.4.4.0: the SONAME follows the major version,
# which changes whenever a record layout or a signature does.
set_target_properties(drlib PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR})
# Only libc and libm may be needed at run time: drop anything the C++ driver
# adds but the code never calls, and refuse undefined symbols.
target_link_options(drlib PRIVATE -Wl,--as-needed -Wl,--no-undefined -static-libgcc)
# The export list is a version script: every exported name carries the node
# DRLIB_4, so it cannot satisfy another module's reference to a same-named
# symbol of another version (strlcpy@GLIBC_2.38 of glibc 2.38 and later), and
# nothing outside the list is exported, whatever its visibility.
set(DRLIB_VERSION_SCRIPT ${PROJECT_SOURCE_DIR}/cmake/libdrlib.map)
# -Bsymbolic binds every reference inside the library to its own definition
# at link time, so a host (linked with -rdynamic) or another library that
# defines ecef2llh, isNaN, crc32_calc or any other exported name cannot take
# over the engine's internal calls. It also covers the exported table
# gk_L_start, which -Bsymbolic-functions would leave interposable; the table
# is const, so a host's copy relocation of it holds the same values. One link
# flag, the same on every target: protected visibility would ask each
# toolchain to get copy relocations and canonical PLT addresses of protected
# symbols right, and internal aliases would double every exported name in the
# sources.
target_link_options(drlib PRIVATE -Wl,-Bsymbolic -Wl,--version-script=${DRLIB_VERSION_SCRIPT})
set_property(TARGET drlib APPEND PROPERTY LINK_DEPENDS ${DRLIB_VERSION_SCRIPT})
# GNU ld also puts the version node itself into the dynamic symbol table, as
# an absolute symbol named DRLIB_4: one name beyond the export list. lld keeps
# the node in the version sections only, so the library links with lld where
# the machine has it (the scripts install it), and with ld otherwise. A cross
# gcc looks for ld.lld only among its own programs: -B points it at a
# directory that holds just a link to the one lld, which serves every target.
find_program(DRLIB_LLD ld.lld)
if(DRLIB_LLD)
  set(DRLIB_LLD_DIR ${CMAKE_BINARY_DIR}/lld)
  file(MAKE_DIRECTORY ${DRLIB_LLD_DIR})
  file(CREATE_LINK ${DRLIB_LLD} ${DRLIB_LLD_DIR}/ld.lld SYMBOLIC)
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_LINK_OPTIONS -fuse-ld=lld -B${DRLIB_LLD_DIR}/)
  check_cxx_source_compiles("int main() { return 0; }" DRLIB_LINKER_LLD)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  if(DRLIB_LINKER_LLD)
    target_link_options(drlib PRIVATE -fuse-ld=lld -B${DRLIB_LLD_DIR}/)
  endif()
endif()

add_library(drlib_static STATIC $<TARGET_OBJECTS:drlib_obj>)
target_include_directories(drlib_static PUBLIC
  ${PROJECT_SOURCE_DIR}/include
  ${PROJECT_SOURCE_DIR}/Alg_DR/src
  ${PROJECT_SOURCE_DIR}/utils)
target_link_libraries(drlib_static PUBLIC m)
