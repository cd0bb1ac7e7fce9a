# Scenario tests: each JSON file under scenarios/ runs the built partmode.
# Expects find_package(GTest) and find_package(nlohmann_json) done by the includer.
include(GoogleTest)

add_executable(partmode_scenarios ${CMAKE_CURRENT_LIST_DIR}/ScenarioTest.cpp)
target_compile_features(partmode_scenarios PRIVATE cxx_std_20)
target_link_libraries(partmode_scenarios PRIVATE GTest::gtest_main nlohmann_json::nlohmann_json)
target_compile_definitions(partmode_scenarios PRIVATE
    PARTMODE_SCENARIO_DIR="${CMAKE_CURRENT_SOURCE_DIR}/scenarios"
    PARTMODE_BINARY="$<TARGET_FILE:partmode>"
    PARTMODE_SIM_BINARY="$<TARGET_FILE:partmode-sim>"
    PARTMODE_LOCALEDIR_FROM_BINDIR="${PARTMODE_LOCALEDIR_FROM_BINDIR}")
add_dependencies(partmode_scenarios partmode partmode-sim)

# Test names come from the scenario files, so adding or removing one must
# re-run discovery: the glob re-configures, LINK_DEPENDS relinks, and the
# relink re-runs the POST_BUILD discovery.
file(GLOB_RECURSE PARTMODE_SCENARIO_FILES CONFIGURE_DEPENDS
    "${CMAKE_CURRENT_SOURCE_DIR}/scenarios/*.json")
set_property(TARGET partmode_scenarios APPEND PROPERTY LINK_DEPENDS ${PARTMODE_SCENARIO_FILES})

# NO_PRETTY_VALUES keeps the scenario path out of the ctest names.
gtest_discover_tests(partmode_scenarios NO_PRETTY_VALUES)

# The scenarios that run the tool as another user, with the tool in a folder
# that user cannot enter (a clone under /root), wherever this tree lies.
add_test(NAME scenario_tool_in_private_tree
  COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/scenario-private-tree.sh
          $<TARGET_FILE:partmode_scenarios> $<TARGET_FILE:partmode> ${PARTMODE_LOCALEDIR_FROM_BINDIR})
set_tests_properties(scenario_tool_in_private_tree PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 120)
