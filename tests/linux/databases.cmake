# Log databases: their layer over SQLite, the reading of rows, the moving of live files, the event log.
# The hidden parts of the libraries are tested too, hence their objects instead of the libraries.
add_library(test_databases STATIC
  ${PROJECT_SOURCE_DIR}/tests/contract/log_database_maker_linux.cpp
  child_process.cpp
  test_database.cpp)
target_link_libraries(test_databases PUBLIC ombrel_flags linux_sqlite)
target_compile_definitions(test_databases PUBLIC OMBREL_HAS_DATABASE_MAKER)
target_compile_definitions(test_databases PRIVATE
  OMBREL_SCHEMA_FILE="${PROJECT_SOURCE_DIR}/linux/vesksyslog/loginfo2.sql")

add_executable(linux_sqlite_test
  database_layer_test.cpp
  database_receipts_test.cpp
  database_turnstile_test.cpp
  file_helpers_test.cpp)
target_link_libraries(linux_sqlite_test PRIVATE test_databases GTest::gtest_main GTest::gmock)
ombrel_discover_tests(linux_sqlite_test unit)

add_executable(veskfileop_test
  database_move_test.cpp
  database_move_across_test.cpp
  database_move_kill_test.cpp
  database_move_names_test.cpp)
target_link_options(veskfileop_test PRIVATE -Wl,--wrap=renameat2)
target_link_libraries(veskfileop_test PRIVATE veskfileop_objects veskcore test_databases PkgConfig::SQLITE3
  GTest::gtest_main GTest::gmock)
ombrel_discover_tests(veskfileop_test system)

add_executable(vesksyslog_test
  debug_sink_test.cpp
  event_log_test.cpp
  log_database_files_test.cpp
  log_paging_test.cpp
  log_select_test.cpp
  original_texts_test.cpp
  text_escape_test.cpp
  text_finder_test.cpp)
target_link_libraries(vesksyslog_test PRIVATE vesksyslog_objects linux_text veskcore test_databases PkgConfig::SQLITE3
  Threads::Threads GTest::gtest_main GTest::gmock)
ombrel_discover_tests(vesksyslog_test system)

# The library on the real platform; its settings, scratch folder and shares are those of a private root.
add_executable(upgrade_support_private_test upgrade_support_private_test.cpp)
target_link_libraries(upgrade_support_private_test PRIVATE ombrel vesksyslog test_databases
  GTest::gtest_main GTest::gmock)
ombrel_precompiled_gtest(upgrade_support_private_test)
ombrel_private_test(upgrade_support unit upgrade_support_private_test)
