# Tests of the board's services: message catalogues, syslog, the example
# board, the installation, the Debian package, the manual pages and the shell
# completion. Expects find_package(GTest) and include(GoogleTest) done by the
# includer, and partmode_gencat and PARTMODE_BUILD_LOCALEDIR from
# cmake/MessageCatalogue.cmake.

# Catalogues the tests point NLSPATH at: PARTMODE_TEST_CATALOGUES/NAME/partmode
# for each catalogues/NAME.msg, and the translation once more as the
# catalogue of the locale C.UTF-8 under PARTMODE_TEST_CATALOGUES/locales.
set(PARTMODE_TEST_CATALOGUES ${CMAKE_CURRENT_BINARY_DIR}/catalogues)
set(test_catalogue_files)
foreach(entry translated:translated hostile:hostile hostile-note:hostile-note translated:locales/C.UTF-8)
  string(REPLACE ":" ";" entry ${entry})
  list(GET entry 0 source)
  list(GET entry 1 folder)
  partmode_gencat(${CMAKE_CURRENT_SOURCE_DIR}/catalogues/${source}.msg
                  ${PARTMODE_TEST_CATALOGUES}/${folder}/${PARTMODE_CATALOGUE_NAME})
  list(APPEND test_catalogue_files ${PARTMODE_TEST_CATALOGUES}/${folder}/${PARTMODE_CATALOGUE_NAME})
endforeach()
add_custom_target(partmode_test_catalogues DEPENDS ${test_catalogue_files})
add_dependencies(partmode_scenarios partmode_test_catalogues)
target_compile_definitions(partmode_scenarios PRIVATE PARTMODE_TEST_CATALOGUES="${PARTMODE_TEST_CATALOGUES}")

add_executable(partmode_service_tests
  BoardExampleTest.cpp
  CatalogueFileTest.cpp
  MessageFormatTest.cpp
  SystemLogTest.cpp
  ToolProcess.cpp)
target_link_libraries(partmode_service_tests PRIVATE partmode_core GTest::gmock GTest::gtest_main)
target_compile_definitions(partmode_service_tests PRIVATE
  PARTMODE_BINARY="$<TARGET_FILE:partmode>"
  PARTMODE_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
  PARTMODE_BUILD_LOCALEDIR="${PARTMODE_BUILD_LOCALEDIR}"
  PARTMODE_TEST_CATALOGUES="${PARTMODE_TEST_CATALOGUES}")
add_dependencies(partmode_service_tests partmode partmode_test_catalogues)
gtest_discover_tests(partmode_service_tests)

# The installed files, the manual pages and the completion, each checked by a
# script against this build tree.
set(packaging_checks install manual_pages completion)
# The Debian package is built from the sources by dpkg-buildpackage, not from
# this build tree, so the sanitizer build leaves it to the plain one.
if(NOT PARTMODE_SANITIZE)
  list(APPEND packaging_checks debian_package)
endif()
foreach(check ${packaging_checks})
  add_test(NAME packaging_${check}
           COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/packaging/${check}.sh ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
  # A script that finds a tool it needs missing says so and exits 77.
  set_tests_properties(packaging_${check} PROPERTIES SKIP_RETURN_CODE 77)
endforeach()
# A whole build of the package: a label of its own, and time for it.
if(TEST packaging_debian_package)
  set_tests_properties(packaging_debian_package PROPERTIES LABELS package TIMEOUT 3600)
endif()
