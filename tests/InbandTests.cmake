# The tool in-band, through a real kernel IPMI driver. The scenario suite runs
# once more, every run of the tool inside one QEMU machine (TCG) whose KCS
# interface reaches one BMC (partmode-sim serve --vm-port); the harness boots
# it once for the whole pass (docs/inband.md). The label "inband" holds these
# tests; the machine's kernel and packages are fetched once into the build
# tree with apt-get download.
set(PARTMODE_INBAND_VM ${CMAKE_CURRENT_BINARY_DIR}/inband-vm)
set(PARTMODE_INBAND_CACHE ${CMAKE_BINARY_DIR}/inband-cache)

# The agent is linked statically, so the guest needs no libraries for it; a
# static program cannot carry the sanitizers' runtimes.
add_executable(partmode-guest-agent inband/partmode_guest_agent.cpp)
set_target_properties(partmode-guest-agent PROPERTIES COMPILE_OPTIONS "" LINK_OPTIONS "")
target_compile_features(partmode-guest-agent PRIVATE cxx_std_20)
target_link_libraries(partmode-guest-agent PRIVATE nlohmann_json::nlohmann_json)
target_link_options(partmode-guest-agent PRIVATE -static)

target_sources(partmode_scenarios PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/inband/GuestAgentClient.cpp)
target_include_directories(partmode_scenarios PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
add_dependencies(partmode_scenarios partmode-guest-agent)

add_test(NAME inband_vm_start
  COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/inband/inband-vm.sh start ${PARTMODE_INBAND_VM} ${PARTMODE_INBAND_CACHE}
          $<TARGET_FILE:partmode-sim> $<TARGET_FILE:partmode> $<TARGET_FILE:partmode-guest-agent>
          ${PARTMODE_TEST_CATALOGUES})
set_tests_properties(inband_vm_start PROPERTIES
  FIXTURES_SETUP inband_vm RESOURCE_LOCK inband_vm LABELS inband TIMEOUT 900)
add_test(NAME inband_vm_stop COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/inband/inband-vm.sh stop ${PARTMODE_INBAND_VM})
set_tests_properties(inband_vm_stop PROPERTIES
  FIXTURES_CLEANUP inband_vm RESOURCE_LOCK inband_vm LABELS inband TIMEOUT 60)

gtest_discover_tests(partmode_scenarios NO_PRETTY_VALUES
  TEST_PREFIX "inband/"
  PROPERTIES
    FIXTURES_REQUIRED inband_vm
    RESOURCE_LOCK inband_vm
    ENVIRONMENT PARTMODE_SCENARIO_VM=${PARTMODE_INBAND_VM}
    LABELS inband
    TIMEOUT 120)

# The in-band failures, in the same machine.
add_executable(partmode_inband_tests inband/InbandFaultTest.cpp inband/GuestAgentClient.cpp)
target_compile_features(partmode_inband_tests PRIVATE cxx_std_20)
target_include_directories(partmode_inband_tests PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(partmode_inband_tests PRIVATE GTest::gtest_main nlohmann_json::nlohmann_json)
target_compile_definitions(partmode_inband_tests PRIVATE
  PARTMODE_BINARY="$<TARGET_FILE:partmode>"
  PARTMODE_SIM_BINARY="$<TARGET_FILE:partmode-sim>"
  PARTMODE_INBAND_SCRIPT="${CMAKE_CURRENT_SOURCE_DIR}/inband/inband-vm.sh")
add_dependencies(partmode_inband_tests partmode partmode-sim partmode-guest-agent)
gtest_discover_tests(partmode_inband_tests
  PROPERTIES
    FIXTURES_REQUIRED inband_vm
    RESOURCE_LOCK inband_vm
    ENVIRONMENT PARTMODE_SCENARIO_VM=${PARTMODE_INBAND_VM}
    LABELS inband
    TIMEOUT 300)
