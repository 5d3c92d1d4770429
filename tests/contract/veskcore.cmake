list(APPEND CONTRACT_SOURCES
  keyvalue_contract_test.cpp)
