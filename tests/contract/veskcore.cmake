list(APPEND CONTRACT_SOURCES
  core_objects_contract_test.cpp
  folder_contract_test.cpp
  keyvalue_contract_test.cpp
  section_contract_test.cpp)
