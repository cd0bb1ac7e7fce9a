# The Ansible collection partmode.fleet (ansible/) against a fleet of simulated
# BMCs (label fleet). The fixture starts PARTMODE_FLEET_SIZE BMCs (partmode-sim
# serve, one state file each) and stops them again, also when a test fails;
# the tests share them and so run one at a time.
set(PARTMODE_FLEET_SIZE 16)
set(PARTMODE_FLEET_BMCS ${CMAKE_CURRENT_BINARY_DIR}/fleet-bmcs)
set(PARTMODE_FLEET_WORK ${CMAKE_CURRENT_BINARY_DIR}/fleet-work)

# The tests run on the Python that runs Ansible, as its modules do.
find_program(PARTMODE_ANSIBLE_PLAYBOOK ansible-playbook)
set(PARTMODE_FLEET_PYTHON python3)
if(PARTMODE_ANSIBLE_PLAYBOOK)
  file(STRINGS ${PARTMODE_ANSIBLE_PLAYBOOK} shebang LIMIT_COUNT 1 REGEX "^#!")
  if(shebang MATCHES "^#! *([^ ]+)$")
    set(PARTMODE_FLEET_PYTHON ${CMAKE_MATCH_1})
  endif()
endif()

add_test(NAME fleet_bmcs_start
  COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/fleet/bmcs.sh start ${PARTMODE_FLEET_BMCS} $<TARGET_FILE:partmode-sim>
          ${PARTMODE_FLEET_SIZE})
set_tests_properties(fleet_bmcs_start PROPERTIES
  FIXTURES_SETUP fleet_bmcs RESOURCE_LOCK fleet_bmcs LABELS fleet TIMEOUT 120)
add_test(NAME fleet_bmcs_stop COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/fleet/bmcs.sh stop ${PARTMODE_FLEET_BMCS})
set_tests_properties(fleet_bmcs_stop PROPERTIES
  FIXTURES_CLEANUP fleet_bmcs RESOURCE_LOCK fleet_bmcs LABELS fleet TIMEOUT 60)

foreach(test
    converges_then_sends_nothing
    check_mode_reports_drift_then_run_mends_it
    running_partition_fails_only_its_host
    mode_info_returns_what_the_states_hold
    refusals_and_a_single_partition_board)
  add_test(NAME fleet_${test}
    COMMAND ${PARTMODE_FLEET_PYTHON} ${CMAKE_CURRENT_SOURCE_DIR}/fleet/fleet_test.py FleetTest.test_${test})
  set_tests_properties(fleet_${test} PROPERTIES
    FIXTURES_REQUIRED fleet_bmcs RESOURCE_LOCK fleet_bmcs LABELS fleet TIMEOUT 600 SKIP_RETURN_CODE 77
    ENVIRONMENT "FLEET_BMCS=${PARTMODE_FLEET_BMCS};FLEET_WORK=${PARTMODE_FLEET_WORK};FLEET_COUNT=${PARTMODE_FLEET_SIZE};PARTMODE=$<TARGET_FILE:partmode>;PARTMODE_SIM=$<TARGET_FILE:partmode-sim>")
endforeach()

# ansible-test sanity, as far as it runs without the network.
add_test(NAME fleet_sanity
  COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/fleet/sanity.sh ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_BINARY_DIR}/fleet-sanity
          ${PARTMODE_FLEET_PYTHON})
set_tests_properties(fleet_sanity PROPERTIES LABELS fleet TIMEOUT 600 SKIP_RETURN_CODE 77)

# The collection's parsing and documentation; no BMC needed.
foreach(test ShowParsingTest DocumentationTest)
  add_test(NAME fleet_${test} COMMAND ${PARTMODE_FLEET_PYTHON} ${CMAKE_CURRENT_SOURCE_DIR}/fleet/fleet_test.py ${test})
  set_tests_properties(fleet_${test} PROPERTIES LABELS fleet TIMEOUT 120 SKIP_RETURN_CODE 77
    ENVIRONMENT "FLEET_BMCS=${PARTMODE_FLEET_BMCS};FLEET_WORK=${PARTMODE_FLEET_WORK};PARTMODE=$<TARGET_FILE:partmode>;PARTMODE_SIM=$<TARGET_FILE:partmode-sim>")
endforeach()
