# The standard library's headers that most files include, compiled once for all libraries. For clang alone: g++ 12 warns
# of their insides when it has them compiled. The other builds show where an include is missing.
file(WRITE ${CMAKE_BINARY_DIR}/standard_headers.cpp "// has its headers compiled\n")
add_library(standard_headers OBJECT ${CMAKE_BINARY_DIR}/standard_headers.cpp)
target_link_libraries(standard_headers PRIVATE ombrel_flags)
target_precompile_headers(standard_headers PRIVATE
  <algorithm> <array> <charconv> <chrono> <cstdio> <cstring> <functional> <list> <map> <memory> <optional> <string>
  <string_view> <vector>)

function(ombrel_precompile_libraries folder)
  get_property(subfolders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(subfolder IN LISTS subfolders)
    ombrel_precompile_libraries(${subfolder})
  endforeach()
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(STATIC|OBJECT|SHARED)_LIBRARY$")
      target_precompile_headers(${target} REUSE_FROM standard_headers)
    endif()
  endforeach()
endfunction()

foreach(folder linux src receiver tools)
  ombrel_precompile_libraries(${folder})
endforeach()
