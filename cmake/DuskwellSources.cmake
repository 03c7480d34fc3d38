# Sources are collected by folder so that a new file needs no CMake edit.
# Suffixes decide where a file goes:
#   foo.cpp           portable core
#   foo_test.cpp      unit test (built into duskwell_tests)
#   foo_posix.cpp     platform layer on every OS
#   foo_linux.cpp     platform layer on Linux
#   foo_mac.mm        platform layer on macOS
#   foo_bench.cpp     benchmark (built into duskwell_bench)

function(duskwell_collect out)
  set(result)
  foreach(dir IN LISTS ARGN)
    file(GLOB files CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${dir}/*.cpp)
    list(FILTER files EXCLUDE REGEX "_(test|posix|linux|bench)\\.cpp$")
    list(APPEND result ${files})
  endforeach()
  set(${out} ${result} PARENT_SCOPE)
endfunction()

function(duskwell_collect_platform out)
  set(result)
  foreach(dir IN LISTS ARGN)
    file(GLOB posix CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${dir}/*_posix.cpp)
    list(APPEND result ${posix})
    if(APPLE)
      file(GLOB mac CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${dir}/*_mac.mm)
      list(APPEND result ${mac})
    else()
      file(GLOB linux CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${dir}/*_linux.cpp)
      list(APPEND result ${linux})
    endif()
  endforeach()
  set(${out} ${result} PARENT_SCOPE)
endfunction()

function(duskwell_collect_suffix out suffix)
  set(result)
  foreach(dir IN LISTS ARGN)
    file(GLOB files CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${dir}/*${suffix})
    list(APPEND result ${files})
  endforeach()
  set(${out} ${result} PARENT_SCOPE)
endfunction()
