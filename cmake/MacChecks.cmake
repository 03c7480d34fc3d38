# Checks of the macOS code that run on any machine (the test run on Linux included):
#  - the app's Info.plist template holds the keys AppKit reads (CheckInfoPlist.cmake);
#  - the project configures as for a Mac and generates the bundle, its signing and its
#    Objective-C++ flags as intended (CheckMacConfigure.cmake);
#  - every .mm file, and the macOS branches of every C++ file the Mac builds that has
#    branches per system, pass clang's syntax check against the stand-in framework headers
#    (scripts/check-objcxx); the check rejects the faults in tests/objcxx-check/ with the
#    diagnostic each names on its first line.
add_test(NAME mac_info_plist
  COMMAND ${CMAKE_COMMAND} -DPLIST=${CMAKE_SOURCE_DIR}/src/app/mac/Info.plist.in
    -DDEPLOYMENT_TARGET=${CMAKE_OSX_DEPLOYMENT_TARGET} -P ${CMAKE_SOURCE_DIR}/cmake/CheckInfoPlist.cmake)

if(APPLE)
  return()  # the Mac compiles the real thing
endif()
# GoogleTest's sources let the Mac configuration include the tests (Debian's libgtest-dev).
if(EXISTS /usr/src/googletest/CMakeLists.txt)
  set(DUSKWELL_MAC_GTEST_SOURCE /usr/src/googletest)
endif()
find_program(DUSKWELL_CLANGXX NAMES clang++ clang++-14)
if(NOT DUSKWELL_CLANGXX)
  # Visible as a failing test rather than a silently missing check.
  add_test(NAME objcxx_syntax_needs_clang COMMAND ${CMAKE_COMMAND} -E false)
  return()
endif()

find_program(DUSKWELL_CLANG NAMES clang clang-14)
add_test(NAME mac_cmake_configure
  COMMAND ${CMAKE_COMMAND} -DSOURCE=${CMAKE_SOURCE_DIR} -DWORK=${CMAKE_BINARY_DIR}/mac-configure
    -DCLANG=${DUSKWELL_CLANG} -DCLANGXX=${DUSKWELL_CLANGXX} -DGENERATOR=${CMAKE_GENERATOR}
    -DMAKE_PROGRAM=${CMAKE_MAKE_PROGRAM} -DVERSION=${PROJECT_VERSION} -DGTEST_SOURCE=${DUSKWELL_MAC_GTEST_SOURCE}
    -P ${CMAKE_SOURCE_DIR}/cmake/CheckMacConfigure.cmake)

set(check ${CMAKE_SOURCE_DIR}/scripts/check-objcxx --generated ${CMAKE_BINARY_DIR}/generated)
file(GLOB_RECURSE mm_files CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/*.mm)
foreach(f IN LISTS mm_files)
  get_filename_component(name ${f} NAME_WE)
  add_test(NAME objcxx_syntax.${name} COMMAND ${check} ${f})
  set_tests_properties(objcxx_syntax.${name} PROPERTIES ENVIRONMENT "CLANGXX=${DUSKWELL_CLANGXX}")
endforeach()

# C++ files with a branch per system, as the Mac builds them (not the Linux-only ones).
file(GLOB_RECURSE cpp_files CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/*.cpp ${CMAKE_SOURCE_DIR}/resources/*.cpp)
list(FILTER cpp_files EXCLUDE REGEX "(_test|_linux|_bench)\\.cpp$|/src/app/linux/")
foreach(f IN LISTS cpp_files)
  file(STRINGS ${f} branches REGEX "__APPLE__|__linux__")
  if(branches)
    file(RELATIVE_PATH name ${CMAKE_SOURCE_DIR} ${f})
    string(REGEX REPLACE "\\.cpp$" "" name "${name}")
    add_test(NAME apple_branch_syntax.${name} COMMAND ${check} ${f})
    set_tests_properties(apple_branch_syntax.${name} PROPERTIES ENVIRONMENT "CLANGXX=${DUSKWELL_CLANGXX}")
  endif()
endforeach()

file(GLOB bad_files CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/objcxx-check/*.mm
  ${CMAKE_SOURCE_DIR}/tests/objcxx-check/*.cpp)
foreach(f IN LISTS bad_files)
  get_filename_component(name ${f} NAME_WE)
  file(STRINGS ${f} expect LIMIT_COUNT 1 REGEX "^// expect: ")
  string(REGEX REPLACE "^// expect: " "" expect "${expect}")
  # Passes only on the named diagnostic: a fault that compiles, or fails for another
  # reason, fails the test.
  add_test(NAME objcxx_syntax_rejects.${name} COMMAND ${check} ${f})
  set_tests_properties(objcxx_syntax_rejects.${name} PROPERTIES
    ENVIRONMENT "CLANGXX=${DUSKWELL_CLANGXX}" PASS_REGULAR_EXPRESSION "${expect}")
endforeach()
