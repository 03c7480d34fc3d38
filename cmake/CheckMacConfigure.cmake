# Configures the project as for a Mac (CMAKE_SYSTEM_NAME Darwin, compiler checks skipped, no
# SDK needed) and checks what the if(APPLE) paths generate: the bundle's filled-in
# Info.plist, the signing after the resources, ARC and warnings on the Objective-C++ files.
# Nothing is built.
#   cmake -DSOURCE=<tree> -DWORK=<dir> -DCLANG=<clang> -DCLANGXX=<clang++> -DGENERATOR=<g>
#         -DMAKE_PROGRAM=<ninja> -DVERSION=<x.y.z> [-DGTEST_SOURCE=<dir>] -P CheckMacConfigure.cmake
cmake_minimum_required(VERSION 3.25)
file(REMOVE_RECURSE "${WORK}")
set(tests -DDUSKWELL_TESTS=OFF)
if(GTEST_SOURCE)
  set(tests -DDUSKWELL_TESTS=ON -DDUSKWELL_GTEST_SOURCE_DIR=${GTEST_SOURCE})
endif()
execute_process(
  COMMAND ${CMAKE_COMMAND} -S "${SOURCE}" -B "${WORK}" -G "${GENERATOR}" -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}
    -DCMAKE_SYSTEM_NAME=Darwin -DCMAKE_C_COMPILER=${CLANG} -DCMAKE_CXX_COMPILER=${CLANGXX}
    -DCMAKE_OBJCXX_COMPILER=${CLANGXX} -DCMAKE_C_COMPILER_WORKS=1 -DCMAKE_CXX_COMPILER_WORKS=1
    -DCMAKE_OBJCXX_COMPILER_WORKS=1 -DCMAKE_INSTALL_NAME_TOOL=/bin/true -DDUSKWELL_WERROR=ON ${tests}
  RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
if(NOT rc EQUAL 0 OR err MATCHES "CMake Error")
  message(FATAL_ERROR "configuring for macOS failed:\n${err}")
endif()

set(faults)
function(expect what text regex)
  if(NOT text MATCHES "${regex}")
    list(APPEND faults "${what}")
    set(faults "${faults}" PARENT_SCOPE)
  endif()
endfunction()

file(READ "${WORK}/Duskwell.app/Contents/Info.plist" plist)
if(plist MATCHES "\\\${")
  list(APPEND faults "Info.plist: a placeholder left unfilled")
endif()
expect("Info.plist: executable" "${plist}" "<key>CFBundleExecutable</key>[ \t\n]*<string>Duskwell</string>")
expect("Info.plist: identifier" "${plist}" "<key>CFBundleIdentifier</key>[ \t\n]*<string>app\\.duskwell\\.Duskwell</string>")
expect("Info.plist: version" "${plist}" "<key>CFBundleShortVersionString</key>[ \t\n]*<string>${VERSION}</string>")

# The programs are copied in, then the inner programs and the bundle are signed, in one step.
file(READ "${WORK}/build.ninja" ninja)
expect("bundle: resources copied, then signed" "${ninja}"
  "duskwell-hook[^\n]*duskwell-cli[^\n]*duskwell-power[^\n]*codesign --force --sign - [^\n]*/Contents/Resources/duskwell-hook [^\n]*/Contents/Resources/duskwell-cli && codesign --force --sign - [^\n]*/Duskwell\\.app")

file(READ "${WORK}/compile_commands.json" commands)
foreach(file popover_view_mac platform_mac)
  expect("${file}.mm: Objective-C++ with ARC and warnings as errors" "${commands}"
    "-x objective-c\\+\\+[^\n]*-mmacosx-version-min=13\\.0[^\n]*-fobjc-arc -Wundeclared-selector[^\n]*-Werror[^\n]*${file}\\.mm")
endforeach()

if(faults)
  list(JOIN faults "\n  " lines)
  message(FATAL_ERROR "the macOS configuration:\n  ${lines}")
endif()
message(STATUS "the macOS configuration generates the bundle as expected")
