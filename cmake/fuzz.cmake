# Fuzz targets (libFuzzer with AddressSanitizer and UndefinedBehaviorSanitizer).
# Clang only. Everything of this build, the library included, is compiled with
# the fuzzer's coverage instrumentation and both sanitizers; any finding aborts.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "DRLIB_BUILD_FUZZ needs clang (e.g. -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang)")
endif()
add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all
                    -fno-omit-frame-pointer -g)
add_link_options(-fsanitize=address,undefined)

# Comparison tracing helps the fuzzer through the input checks; in the numeric
# kernels and the simulator it only costs time (most of it, measured).
file(GLOB DRLIB_FUZZ_NUMERIC CONFIGURE_DEPENDS
     ${PROJECT_SOURCE_DIR}/utils/matrix*.cpp ${PROJECT_SOURCE_DIR}/Alg_DR/src/kf_*.cpp
     ${PROJECT_SOURCE_DIR}/Alg_DR/src/dr_mech*.cpp ${PROJECT_SOURCE_DIR}/Alg_DR/src/dr_common_*.cpp
     ${PROJECT_SOURCE_DIR}/sim/*.cpp)
set_source_files_properties(${DRLIB_FUZZ_NUMERIC} PROPERTIES COMPILE_OPTIONS -fno-sanitize-coverage=trace-cmp)

set(DRLIB_FUZZ_DIR ${PROJECT_SOURCE_DIR}/fuzz)
add_library(drlib_fuzz_support STATIC ${DRLIB_FUZZ_DIR}/fuzz_support.cpp)
target_include_directories(drlib_fuzz_support PUBLIC ${DRLIB_FUZZ_DIR})
target_link_libraries(drlib_fuzz_support PUBLIC drlib_static drlib_sim drlib_toolcommon)

foreach(name records log_reader config)
  add_executable(fuzz_${name} ${DRLIB_FUZZ_DIR}/fuzz_${name}.cpp)
  target_link_libraries(fuzz_${name} PRIVATE drlib_fuzz_support)
  target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
endforeach()

add_executable(fuzz_make_seeds ${DRLIB_FUZZ_DIR}/make_seeds.cpp)
target_link_libraries(fuzz_make_seeds PRIVATE drlib_fuzz_support)
