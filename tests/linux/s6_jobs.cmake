include_guard(GLOBAL)
# Real supervised jobs for the tests of several areas.
add_library(test_s6_jobs STATIC ${CMAKE_CURRENT_LIST_DIR}/s6_jobs.cpp)
target_link_libraries(test_s6_jobs PUBLIC ombrel_flags linux_process GTest::gtest)
target_compile_definitions(test_s6_jobs PRIVATE OMBREL_JOBS_PROGRAM="$<TARGET_FILE:ombrel-jobs>")
add_dependencies(test_s6_jobs ombrel-jobs)
