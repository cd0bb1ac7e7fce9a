# Tests of the built partmode as a whole program: the census of bad input over
# every command form, many set commands at once, and what it loads to start;
# and of the built partmode-sim: its command line and serve's start.
add_executable(partmode_process_tests
  BadInputCensusTest.cpp
  ConcurrencyTest.cpp
  SimControlTest.cpp
  SimServeTest.cpp
  StartupPathTest.cpp
  ToolProcess.cpp)
target_link_libraries(partmode_process_tests PRIVATE partmode_core GTest::gtest_main nlohmann_json::nlohmann_json)
target_compile_definitions(partmode_process_tests PRIVATE
  PARTMODE_BINARY="$<TARGET_FILE:partmode>"
  PARTMODE_SIM_BINARY="$<TARGET_FILE:partmode-sim>"
  PARTMODE_VERSION="${PROJECT_VERSION}"
  PARTMODE_BMC_SCRIPT="${CMAKE_CURRENT_SOURCE_DIR}/scenario-bmc.sh")
add_dependencies(partmode_process_tests partmode partmode-sim)
gtest_discover_tests(partmode_process_tests PROPERTIES TIMEOUT 300)
