# Runs inside `cmake --install` (and CPack's install): CMAKE_INSTALL_PREFIX is the prefix in
# use now, which may differ from the one configured. Set by the caller: DUSKWELL_SOURCE_DIR,
# DUSKWELL_BINDIR, DUSKWELL_APPLICATIONS_DIR, DUSKWELL_REGISTER_DESKTOP.

set(bindir "${DUSKWELL_BINDIR}")
if(NOT IS_ABSOLUTE "${bindir}")
  set(bindir "${CMAKE_INSTALL_PREFIX}/${bindir}")
endif()
# The path as the installed system sees it: without DESTDIR, which only stages the files.
set(CMAKE_INSTALL_FULL_BINDIR "${bindir}")

# Written in a private temporary folder, not the build folder: after a `sudo cmake --install`
# a root-owned file there would stop the next install as a user.
set(tmp "$ENV{TMPDIR}")
if(NOT tmp)
  set(tmp /tmp)
endif()
execute_process(COMMAND mktemp -d "${tmp}/duskwell-install.XXXXXX"
                OUTPUT_VARIABLE DUSKWELL_STAGE_DIR OUTPUT_STRIP_TRAILING_WHITESPACE
                RESULT_VARIABLE rc)
if(NOT rc EQUAL 0 OR NOT IS_DIRECTORY "${DUSKWELL_STAGE_DIR}")
  message(FATAL_ERROR "mktemp -d in ${tmp} failed")
endif()
configure_file("${DUSKWELL_SOURCE_DIR}/packaging/linux/duskwelld.service"
               "${DUSKWELL_STAGE_DIR}/duskwelld.service" @ONLY)
# systemd's own folder layout, not the library folder (lib64, lib/<triplet>): user units are
# looked up in <prefix>/lib/systemd/user for /usr and /usr/local.
file(INSTALL DESTINATION "${CMAKE_INSTALL_PREFIX}/lib/systemd/user" TYPE FILE
     FILES "${DUSKWELL_STAGE_DIR}/duskwelld.service")

# The handler runs the installed duskwelld, whether or not its folder is on PATH.
file(READ "${DUSKWELL_SOURCE_DIR}/packaging/linux/duskwell-url.desktop" desktop)
string(REPLACE "\nExec=duskwelld " "\nExec=${bindir}/duskwelld " desktop "${desktop}")
file(WRITE "${DUSKWELL_STAGE_DIR}/duskwell-url.desktop" "${desktop}")
set(applications "${DUSKWELL_APPLICATIONS_DIR}")
if(NOT IS_ABSOLUTE "${applications}")
  set(applications "${CMAKE_INSTALL_PREFIX}/${applications}")
endif()
file(INSTALL DESTINATION "${applications}" TYPE FILE
     FILES "${DUSKWELL_STAGE_DIR}/duskwell-url.desktop")
file(REMOVE_RECURSE "${DUSKWELL_STAGE_DIR}")

# A staged install (DESTDIR, a package being built) leaves this system's desktop alone: a
# package registers the handler in its maintainer scripts.
if(NOT DUSKWELL_REGISTER_DESKTOP OR NOT "$ENV{DESTDIR}" STREQUAL "")
  return()
endif()
find_program(update_desktop_database update-desktop-database)
if(update_desktop_database)
  execute_process(COMMAND "${update_desktop_database}" -q "${applications}" RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(WARNING "update-desktop-database ${applications} failed (${rc})")
  endif()
endif()
# xdg-mime writes the installing user's ~/.config/mimeapps.list; under sudo HOME may still
# be the caller's, and a root-owned file there would lock them out of their own settings.
find_program(xdg_mime xdg-mime)
execute_process(COMMAND id -u OUTPUT_VARIABLE uid OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND stat -c %u "$ENV{HOME}" OUTPUT_VARIABLE home_uid
                OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(xdg_mime AND NOT uid STREQUAL home_uid)
  message(STATUS "Not setting the duskwell:// default: $ENV{HOME} is not the installing user's; "
                 "run `xdg-mime default duskwell-url.desktop x-scheme-handler/duskwell` as yourself")
elseif(xdg_mime)
  execute_process(COMMAND "${xdg_mime}" default duskwell-url.desktop x-scheme-handler/duskwell
                  RESULT_VARIABLE rc)
  if(rc EQUAL 0)
    message(STATUS "duskwell:// links now open with duskwell-url.desktop (xdg-mime)")
  else()
    message(WARNING "xdg-mime default duskwell-url.desktop x-scheme-handler/duskwell failed (${rc})")
  endif()
endif()
