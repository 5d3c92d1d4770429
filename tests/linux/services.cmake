# Shares, file systems and service jobs.
add_executable(vesksdk_test
  file_system_kind_test.cpp
  share_definitions_test.cpp)
target_link_libraries(vesksdk_test PRIVATE ombrel_flags vesksdk_objects veskcore linux_process PkgConfig::LIBMOUNT
  GTest::gtest_main GTest::gmock)
gtest_discover_tests(vesksdk_test DISCOVERY_MODE PRE_TEST PROPERTIES LABELS unit)
