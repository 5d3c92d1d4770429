# Shares, file systems and service jobs.
add_executable(vesksdk_test
  file_system_kind_test.cpp
  share_definitions_test.cpp)
target_link_libraries(vesksdk_test PRIVATE ombrel_flags vesksdk_objects veskcore linux_process PkgConfig::LIBMOUNT
  GTest::gtest_main GTest::gmock)
gtest_discover_tests(vesksdk_test DISCOVERY_MODE PRE_TEST PROPERTIES LABELS unit)

add_executable(job_definition_test
  job_definition_test.cpp)
target_link_libraries(job_definition_test PRIVATE ombrel_flags ombrel_job_definitions veskserviceconf_objects
  veskcore_objects GTest::gtest_main GTest::gmock)
gtest_discover_tests(job_definition_test DISCOVERY_MODE PRE_TEST PROPERTIES LABELS unit)

# What needs a supervisor starts one over a temporary folder.
add_executable(s6_manager_test
  s6_jobs.cpp
  s6_manager_test.cpp)
target_link_libraries(s6_manager_test PRIVATE ombrel_flags ombrel_job_definitions veskserviceconf_objects
  veskcore_objects GTest::gtest_main GTest::gmock)
gtest_discover_tests(s6_manager_test DISCOVERY_MODE PRE_TEST PROPERTIES LABELS unit)
