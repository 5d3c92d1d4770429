# Port declarations. The real ones stand in a fixed folder, so their tests run in a private root.
list(APPEND CONTRACT_SOURCES ports_contract_test.cpp)
string(APPEND CONTRACT_PRIVATE_TESTS ":PortDeclarations.*")
ombrel_private_test(contract.ports contract contract_linux --gtest_filter=PortDeclarations.*)
