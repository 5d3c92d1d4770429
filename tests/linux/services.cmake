# Shares, file systems and service jobs.
include(${PROJECT_SOURCE_DIR}/cmake/OmbrelPrivateTest.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/real_jobs.cmake)

add_executable(vesksdk_test
  file_system_kind_test.cpp
  share_definitions_test.cpp)
target_link_libraries(vesksdk_test PRIVATE ombrel_flags vesksdk_objects veskcore linux_process PkgConfig::LIBMOUNT
  GTest::gtest_main GTest::gmock)
ombrel_discover_tests(vesksdk_test unit)

add_executable(child_process_test
  child_process_test.cpp)
target_link_libraries(child_process_test PRIVATE ombrel_flags linux_process GTest::gtest_main GTest::gmock)
ombrel_discover_tests(child_process_test unit)

add_executable(readiness_test
  readiness_test.cpp)
target_link_libraries(readiness_test PRIVATE ombrel_flags linux_readiness GTest::gtest_main)
ombrel_discover_tests(readiness_test unit)

add_executable(job_definition_test
  job_definition_test.cpp)
target_link_libraries(job_definition_test PRIVATE ombrel_flags ombrel_job_definitions
  GTest::gtest_main GTest::gmock)
target_compile_definitions(job_definition_test PRIVATE OMBREL_JOB_FILES="${CMAKE_CURRENT_LIST_DIR}/job_files")
ombrel_discover_tests(job_definition_test unit)

add_executable(ombrel_jobs_test
  ombrel_jobs_test.cpp)
target_link_libraries(ombrel_jobs_test PRIVATE ombrel_flags linux_process GTest::gtest_main GTest::gmock)
target_compile_definitions(ombrel_jobs_test PRIVATE
  OMBREL_JOBS_PROGRAM="$<TARGET_FILE:ombrel-jobs>" OMBREL_JOB_FOLDER="${PROJECT_SOURCE_DIR}/receiver/jobs")
add_dependencies(ombrel_jobs_test ombrel-jobs)
ombrel_discover_tests(ombrel_jobs_test unit)

add_executable(job_ended_test
  child_process.cpp
  job_ended_test.cpp)
target_link_libraries(job_ended_test PRIVATE ombrel_flags test_real_jobs veskserviceconf_objects veskcore
  GTest::gtest_main GTest::gmock)
target_compile_definitions(job_ended_test PRIVATE
  OMBREL_JOB_ENDED="${PROJECT_SOURCE_DIR}/receiver/jobs/ombrel-job-ended")
ombrel_discover_tests(job_ended_test unit)

# What needs a supervisor starts one over a temporary folder.
add_executable(s6_manager_test
  s6_manager_test.cpp)
target_link_libraries(s6_manager_test PRIVATE ombrel_flags test_real_jobs veskserviceconf_objects veskcore
  GTest::gtest_main GTest::gmock)
ombrel_discover_tests(s6_manager_test unit)

# The manager is asked over a bus of the test's own.
add_executable(systemd_manager_test
  child_process.cpp
  fake_systemd.cpp
  systemd_manager_test.cpp)
target_link_libraries(systemd_manager_test PRIVATE ombrel_flags veskserviceconf_objects linux_process veskcore
  Threads::Threads GTest::gtest_main GTest::gmock)
ombrel_discover_tests(systemd_manager_test unit)

# Run by tests/system/systemd_jobs, on a machine that systemd has booted.
add_executable(systemd_jobs_test
  child_process.cpp
  systemd_jobs_test.cpp)
target_link_libraries(systemd_jobs_test PRIVATE ombrel_flags test_real_jobs veskserviceconf_objects veskcore
  GTest::gtest_main GTest::gmock)
ombrel_precompiled_gtest(systemd_jobs_test)

# Mounts and the share definitions are changed, so these run in a private root.
add_executable(vesksdk_private_test
  file_systems_private_test.cpp
  shares_private_test.cpp
  service_manager_private_test.cpp)
target_link_libraries(vesksdk_private_test PRIVATE ombrel_flags vesksdk veskserviceconf veskcore linux_process
  GTest::gtest_main GTest::gmock)
ombrel_precompiled_gtest(vesksdk_private_test)
ombrel_private_test(vesksdk unit vesksdk_private_test)

add_test(NAME private_root COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/private_root_test.sh)
set_tests_properties(private_root PROPERTIES LABELS system SKIP_RETURN_CODE 77 TIMEOUT 240 COST 500)

add_test(NAME systemd_root COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/systemd_root_test.sh)
set_tests_properties(systemd_root PROPERTIES LABELS system SKIP_RETURN_CODE 77 TIMEOUT 240 RUN_SERIAL ON)
