# Flags that every target of the project shares, and the ways to make its libraries.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON) # the GNU dialect declares stat64 and statfs64
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

find_program(OMBREL_CCACHE ccache)
if(OMBREL_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${OMBREL_CCACHE})
endif()

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

add_library(ombrel_flags INTERFACE)
target_compile_options(ombrel_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wzero-as-null-pointer-constant -Werror)
target_include_directories(ombrel_flags INTERFACE
  ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
if(OMBREL_SANITIZE)
  target_compile_options(ombrel_flags INTERFACE
    -fsanitize=${OMBREL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(ombrel_flags INTERFACE -fsanitize=${OMBREL_SANITIZE})
endif()
if(OMBREL_COVERAGE)
  target_compile_options(ombrel_flags INTERFACE --coverage)
  target_link_options(ombrel_flags INTERFACE --coverage)
endif()

# Keeps the standard library's template instances out of the dynamic symbol table of a shared library.
set(OMBREL_VERSION_SCRIPT ${PROJECT_SOURCE_DIR}/cmake/hide-std.map)
function(ombrel_hide_std target)
  target_link_options(${target} PRIVATE -Wl,--version-script=${OMBREL_VERSION_SCRIPT})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${OMBREL_VERSION_SCRIPT})
endfunction()

# ombrel_platform_library(NAME SONAME_VERSION SOURCES...): one shared library of the platform.
# SONAME_VERSION is the number behind ".so." or NONE.
function(ombrel_platform_library name version)
  add_library(${name} SHARED ${ARGN})
  target_link_libraries(${name} PRIVATE ombrel_flags)
  if(NOT version STREQUAL "NONE")
    set_target_properties(${name} PROPERTIES VERSION ${version} SOVERSION ${version})
  endif()
  ombrel_hide_std(${name})
  install(TARGETS ${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()
