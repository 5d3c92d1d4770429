# Port declarations, the port conflict test and the firewall.
include(${PROJECT_SOURCE_DIR}/cmake/OmbrelPrivateTest.cmake)

add_executable(declared_ports_test
  declared_ports_test.cpp
  port_list_test.cpp)
target_link_libraries(declared_ports_test PRIVATE ombrel_flags linux_ports veskcore GTest::gtest_main GTest::gmock)
gtest_discover_tests(declared_ports_test DISCOVERY_MODE PRE_TEST PROPERTIES LABELS unit)

# The fixed folders are needed, so these run in a private root.
add_executable(ports_private_test
  port_section_private_test.cpp)
target_link_libraries(ports_private_test PRIVATE ombrel_flags veskserviceconf veskcore GTest::gtest_main GTest::gmock)
ombrel_private_test(ports unit ports_private_test)
