# The built partmode against a hostile caller and file system (links, FIFOs,
# foreign owners, a held lock, a full disk, set-user-ID runs, kill -9). Some
# need root and skip themselves otherwise; the lock test waits out the 10 s
# bound, so the suite has a label of its own: ctest -L hardening.
add_executable(partmode_hardening_tests
  HardeningTest.cpp
  ToolProcess.cpp)
target_link_libraries(partmode_hardening_tests PRIVATE partmode_core GTest::gtest_main nlohmann_json::nlohmann_json)
target_compile_definitions(partmode_hardening_tests PRIVATE PARTMODE_BINARY="$<TARGET_FILE:partmode>")
# The sanitizer runtimes do not run set-user-ID, so those tests skip there.
if(PARTMODE_SANITIZE)
  target_compile_definitions(partmode_hardening_tests PRIVATE PARTMODE_SANITIZED=1)
endif()
add_dependencies(partmode_hardening_tests partmode)
gtest_discover_tests(partmode_hardening_tests PROPERTIES TIMEOUT 300 LABELS hardening)
