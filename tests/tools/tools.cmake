# The command-line tools driven as a user drives them (host builds only).
find_program(DRLIB_TOOLS_PYTHON NAMES python3)
if(DRLIB_TOOLS_PYTHON AND NOT CMAKE_CROSSCOMPILING AND TARGET drlib-replay AND TARGET drlib-csv2log)
  add_test(NAME tools_cli COMMAND ${DRLIB_TOOLS_PYTHON} ${CMAKE_CURRENT_LIST_DIR}/test_tools_cli.py -v)
  set_tests_properties(tools_cli PROPERTIES ENVIRONMENT
    "PYTHONPATH=${PROJECT_SOURCE_DIR}/python;PYTHONDONTWRITEBYTECODE=1;DRLIB_SIM=$<TARGET_FILE:drlib-sim>;DRLIB_REPLAY=$<TARGET_FILE:drlib-replay>;DRLIB_CONVERT=$<TARGET_FILE:drlib-csv2log>;DRLIB_SHARED=${PROJECT_SOURCE_DIR}/../shared")
endif()
