# The app's Info.plist template holds what AppKit and the launch services read from it:
#   cmake -DPLIST=<Info.plist.in> -DDEPLOYMENT_TARGET=<13.0> -P CheckInfoPlist.cmake
# Fails with one line per fault.
file(READ "${PLIST}" text)
cmake_minimum_required(VERSION 3.25)
set(faults)

# <key>name</key> followed by exactly `value` (whitespace between them ignored).
function(expect key value)
  string(REGEX MATCHALL "<key>${key}</key>" keys "${text}")
  list(LENGTH keys n)
  if(NOT n EQUAL 1)
    list(APPEND faults "${key}: present ${n} times, wanted once")
  elseif(NOT text MATCHES "<key>${key}</key>[ \t\r\n]*${value}")
    list(APPEND faults "${key}: not ${value}")
  endif()
  set(faults "${faults}" PARENT_SCOPE)
endfunction()

# Retina: without it AppKit draws the app magnified.
expect(NSHighResolutionCapable "<true/>")
expect(NSPrincipalClass "<string>NSApplication</string>")
# A menu-bar app: no Dock icon, no menu bar of its own.
expect(LSUIElement "<true/>")
expect(LSMinimumSystemVersion "<string>${DEPLOYMENT_TARGET}</string>")
expect(CFBundlePackageType "<string>APPL</string>")
expect(CFBundleExecutable "<string>\\\${MACOSX_BUNDLE_EXECUTABLE_NAME}</string>")
expect(CFBundleIdentifier "<string>\\\${MACOSX_BUNDLE_GUI_IDENTIFIER}</string>")
expect(CFBundleURLSchemes "<array>[ \t\r\n]*<string>duskwell</string>")

# Every placeholder must be one CMake fills in for a bundle; a misspelt one stays literal.
set(filled MACOSX_BUNDLE_EXECUTABLE_NAME MACOSX_BUNDLE_GUI_IDENTIFIER MACOSX_BUNDLE_BUNDLE_NAME
  MACOSX_BUNDLE_BUNDLE_VERSION MACOSX_BUNDLE_SHORT_VERSION_STRING MACOSX_BUNDLE_COPYRIGHT)
string(REGEX MATCHALL "\\\${[A-Za-z_]+}" placeholders "${text}")
foreach(p IN LISTS placeholders)
  string(REGEX REPLACE "^\\\${(.*)}$" "\\1" name "${p}")
  if(NOT name IN_LIST filled)
    list(APPEND faults "${p}: not filled in by the bundle's properties")
  endif()
endforeach()

# Balanced containers: a dropped closing tag makes the whole file unreadable.
foreach(tag dict array)
  string(REGEX MATCHALL "<${tag}>" opened "${text}")
  string(REGEX MATCHALL "</${tag}>" closed "${text}")
  list(LENGTH opened o)
  list(LENGTH closed c)
  if(NOT o EQUAL c)
    list(APPEND faults "<${tag}>: ${o} opened, ${c} closed")
  endif()
endforeach()

if(faults)
  list(JOIN faults "\n  " lines)
  message(FATAL_ERROR "${PLIST}:\n  ${lines}")
endif()
message(STATUS "${PLIST}: every checked key present")
