# Log databases, plain SQL and the moving of files.
list(APPEND CONTRACT_SOURCES
  file_move_contract_test.cpp
  log_database_contract_test.cpp
  log_rows_contract_test.cpp
  plain_sql_contract_test.cpp)
list(APPEND CONTRACT_LINUX_SOURCES log_database_maker_linux.cpp)
list(APPEND CONTRACT_LINUX_LIBS linux_sqlite)
set_source_files_properties(log_database_maker_linux.cpp PROPERTIES COMPILE_DEFINITIONS
  OMBREL_SCHEMA_FILE="${PROJECT_SOURCE_DIR}/linux/vesksyslog/loginfo2.sql")
