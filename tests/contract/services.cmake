include(${PROJECT_SOURCE_DIR}/cmake/OmbrelPrivateTest.cmake)
include(${PROJECT_SOURCE_DIR}/tests/linux/real_jobs.cmake)

# Service jobs and shares. The real ones need the fixed folders, so their tests run in a private root.
list(APPEND CONTRACT_SOURCES
  service_jobs_contract_test.cpp
  shares_contract_test.cpp)
list(APPEND CONTRACT_LINUX_SOURCES service_maker_linux.cpp)
list(APPEND CONTRACT_LINUX_LIBS test_real_jobs)
set(CONTRACT_PRIVATE_TESTS "ServiceJobs.*:Shares.*")
ombrel_private_test(contract.services contract contract_linux --gtest_filter=ServiceJobs.*)
ombrel_private_test(contract.shares contract contract_linux --gtest_filter=Shares.*)
