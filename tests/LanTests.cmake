# The tool over real IPMI. The scenario suite runs a second time, every board
# reaching one BMC (partmode-sim serve: ipmi_sim with the firmware simulator
# module) over IPMI 2.0 LAN on a free loopback port. That BMC serves a single
# state file, so these tests hold one lock and run one at a time. The
# transport's failures have tests of their own, each with its own BMC.
set(PARTMODE_SCENARIO_BMC ${CMAKE_CURRENT_BINARY_DIR}/scenario-bmc)

add_test(NAME scenario_bmc_start
  COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/scenario-bmc.sh start ${PARTMODE_SCENARIO_BMC} $<TARGET_FILE:partmode-sim>)
set_tests_properties(scenario_bmc_start PROPERTIES
  FIXTURES_SETUP scenario_bmc RESOURCE_LOCK scenario_bmc TIMEOUT 60)
add_test(NAME scenario_bmc_stop COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/scenario-bmc.sh stop ${PARTMODE_SCENARIO_BMC})
set_tests_properties(scenario_bmc_stop PROPERTIES
  FIXTURES_CLEANUP scenario_bmc RESOURCE_LOCK scenario_bmc TIMEOUT 60)

gtest_discover_tests(partmode_scenarios NO_PRETTY_VALUES
  TEST_PREFIX "lan/"
  PROPERTIES
    FIXTURES_REQUIRED scenario_bmc
    RESOURCE_LOCK scenario_bmc
    ENVIRONMENT PARTMODE_SCENARIO_BMC=${PARTMODE_SCENARIO_BMC}
    TIMEOUT 60)

add_executable(partmode_transport_tests FreeIpmiTransportTest.cpp RawIpmiFrameTest.cpp ToolProcess.cpp
  ${PROJECT_SOURCE_DIR}/sim/SystemInterfaceProbe.cpp)
target_link_libraries(partmode_transport_tests PRIVATE partmode_core GTest::gtest_main nlohmann_json::nlohmann_json)
target_compile_definitions(partmode_transport_tests PRIVATE
  PARTMODE_BINARY="$<TARGET_FILE:partmode>"
  PARTMODE_SIM_BINARY="$<TARGET_FILE:partmode-sim>")
add_dependencies(partmode_transport_tests partmode partmode-sim)
gtest_discover_tests(partmode_transport_tests PROPERTIES TIMEOUT 300)
