# Several files of a library are compiled as one, which takes less time: what they all include and instantiate is done once.
# Not for daily work, where an edit would have its neighbours compiled again, and where a missing include shows.
# So the names of a file's helpers are to be its own within its library.
#
# With clang the standard library's headers that most files include are compiled once for all libraries as well; g++ 12
# warns of their insides when it has them precompiled.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  file(WRITE ${CMAKE_BINARY_DIR}/standard_headers.cpp "// has its headers compiled\n")
  add_library(standard_headers OBJECT ${CMAKE_BINARY_DIR}/standard_headers.cpp)
  target_link_libraries(standard_headers PRIVATE ombrel_flags)
  target_precompile_headers(standard_headers PRIVATE
    <algorithm> <array> <charconv> <chrono> <cstdio> <cstring> <functional> <list> <map> <memory> <optional> <string>
    <string_view> <vector>)
endif()

function(ombrel_unite_libraries folder)
  get_property(subfolders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(subfolder IN LISTS subfolders)
    ombrel_unite_libraries(${subfolder})
  endforeach()
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(STATIC|OBJECT|SHARED)_LIBRARY$")
      set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 10)
      # g++ takes the files of a batch for headers, which had better not use unnamed namespaces.
      target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
      if(TARGET standard_headers)
        target_precompile_headers(${target} REUSE_FROM standard_headers)
      endif()
    endif()
  endforeach()
endfunction()

foreach(folder linux src receiver tools)
  ombrel_unite_libraries(${folder})
endforeach()
# Each unit of this library has the same name for what its words in the system log begin with.
set_target_properties(ombrel_objects PROPERTIES UNITY_BUILD OFF)
