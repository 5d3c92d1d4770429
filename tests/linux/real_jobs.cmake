include_guard(GLOBAL)
# Real supervised jobs for the tests of several areas.
add_library(test_real_jobs STATIC ${CMAKE_CURRENT_LIST_DIR}/real_jobs.cpp)
target_link_libraries(test_real_jobs PUBLIC ombrel_flags linux_process PkgConfig::SYSTEMD GTest::gtest)
target_compile_definitions(test_real_jobs PRIVATE OMBREL_JOBS_PROGRAM="$<TARGET_FILE:ombrel-jobs>")
add_dependencies(test_real_jobs ombrel-jobs)
