# The hidden parts of the library are tested too, hence its objects instead of the library.
add_executable(veskcore_test
  child_process.cpp
  veskcore_error_test.cpp
  veskcore_files_test.cpp
  veskcore_lock_test.cpp
  veskcore_programs_test.cpp
  veskcore_settings_text_test.cpp
  veskcore_writers_test.cpp)
target_link_libraries(veskcore_test PRIVATE
  ombrel_flags veskcore_objects Threads::Threads GTest::gtest_main GTest::gmock)
if(OMBREL_SANITIZE)
  target_compile_definitions(veskcore_test PRIVATE OMBREL_SANITIZED)
endif()
ombrel_discover_tests(veskcore_test system)
