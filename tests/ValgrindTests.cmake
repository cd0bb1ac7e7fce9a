# The scenario suite once more, every run of the tool under valgrind's
# memcheck: an invalid access, a use of an uninitialised value or a leak ends
# the run with status 99 and puts valgrind's report on the standard error the
# scenario compares, so the scenario fails. Programs built with the sanitizers
# cannot run under valgrind, so a sanitizer build leaves this pass out.
if(PARTMODE_SANITIZE)
  set(partmode_valgrind_default OFF)
else()
  set(partmode_valgrind_default ON)
endif()
option(PARTMODE_VALGRIND_SCENARIOS "Run the scenario suite under valgrind too" ${partmode_valgrind_default})
if(PARTMODE_VALGRIND_SCENARIOS)
  find_program(PARTMODE_VALGRIND valgrind REQUIRED)
  set(valgrind_command
      "${PARTMODE_VALGRIND} --quiet --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite,indirect,possible")
  gtest_discover_tests(partmode_scenarios NO_PRETTY_VALUES
    TEST_PREFIX "valgrind/"
    PROPERTIES
      LABELS valgrind
      ENVIRONMENT "PARTMODE_SCENARIO_WRAPPER=${valgrind_command}"
      TIMEOUT 600)
endif()
