# Port declarations, the port conflict test and the firewall.
include(${PROJECT_SOURCE_DIR}/cmake/OmbrelPrivateTest.cmake)

add_executable(declared_ports_test
  declared_ports_test.cpp
  port_list_test.cpp)
target_link_libraries(declared_ports_test PRIVATE ombrel_flags linux_ports veskcore GTest::gtest_main GTest::gmock)
ombrel_discover_tests(declared_ports_test unit)

add_executable(service_ports_test
  process_sockets_test.cpp
  service_ports_test.cpp
  socket_table_test.cpp)
target_link_libraries(service_ports_test PRIVATE ombrel_flags veskserviceconf_port_objects linux_ports linux_sockets
  linux_text veskcore GTest::gtest_main GTest::gmock)
ombrel_discover_tests(service_ports_test unit)

# The fixed folders are needed, so these run in a private root.
add_executable(ports_private_test
  port_section_private_test.cpp)
target_link_libraries(ports_private_test PRIVATE ombrel_flags veskserviceconf veskcore GTest::gtest_main GTest::gmock)
ombrel_precompiled_gtest(ports_private_test)
ombrel_private_test(ports unit ports_private_test)

add_executable(firewall_rules_test
  firewall_rules_test.cpp)
target_link_libraries(firewall_rules_test PRIVATE ombrel_flags veskfirewall_objects linux_ports linux_text veskcore
  PkgConfig::LIBNFTABLES GTest::gtest_main GTest::gmock)
ombrel_discover_tests(firewall_rules_test unit)

# For the system tests. The port tool shows what only the library's own code can read.
add_executable(port-tool port_tool.cpp)
target_link_libraries(port-tool PRIVATE ombrel_flags veskserviceconf_port_objects linux_ports linux_sockets linux_text
  veskfirewall veskcore)
add_executable(port-echo port_echo.cpp)
target_link_libraries(port-echo PRIVATE ombrel_flags)
