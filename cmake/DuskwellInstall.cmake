# Install rules (Linux). Everything lands under the install prefix, DESTDIR respected:
#   bin/duskwelld, bin/duskwell (a link to the one copy of the CLI)
#   libexec/duskwell/{duskwell-cli,duskwell-hook,duskwell-power}  (duskwelld finds them here)
#   lib/systemd/user/duskwelld.service, share/applications/duskwell-url.desktop
#   share/man/man1, share/bash-completion, share/zsh, share/fish, share/doc/duskwell
# The unit and the desktop file name the installed duskwelld, so they are written at install
# time, when the prefix is known (cmake --install --prefix can change it after configuring).
include(GNUInstallDirs)
set(DUSKWELL_LIBEXEC ${CMAKE_INSTALL_LIBEXECDIR}/duskwell)
set(DUSKWELL_DOCDIR ${CMAKE_INSTALL_DATADIR}/doc/duskwell)
option(DUSKWELL_REGISTER_DESKTOP
  "On install without DESTDIR, register the duskwell:// handler (update-desktop-database, xdg-mime)" ON)

# A Release install is stripped without asking; `cmake --install --strip` strips any build.
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  install(CODE "set(CMAKE_INSTALL_DO_STRIP 1)")
endif()

install(TARGETS duskwelld RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS duskwell-cli duskwell-hook RUNTIME DESTINATION ${DUSKWELL_LIBEXEC})
install(PROGRAMS resources/duskwell-power DESTINATION ${DUSKWELL_LIBEXEC})

# `duskwell` on PATH is a relative link to the copy duskwelld ships (Platform::resourcePath
# looks in <exe dir>/../libexec/duskwell), so the CLI is installed once.
file(RELATIVE_PATH cli_link_target
  /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${DUSKWELL_LIBEXEC}/duskwell-cli)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/packaging)
file(CREATE_LINK ${cli_link_target} ${CMAKE_BINARY_DIR}/packaging/duskwell SYMBOLIC)
install(FILES ${CMAKE_BINARY_DIR}/packaging/duskwell DESTINATION ${CMAKE_INSTALL_BINDIR})

# Man pages, compressed as Debian wants them (-n: no name or time stamp, same bytes each build).
set(man_pages)
foreach(page duskwell.1 duskwelld.1)
  add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/man/${page}.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man
    COMMAND gzip -9n -c ${CMAKE_SOURCE_DIR}/packaging/man/${page} > ${CMAKE_BINARY_DIR}/man/${page}.gz
    DEPENDS ${CMAKE_SOURCE_DIR}/packaging/man/${page}
    VERBATIM)
  list(APPEND man_pages ${CMAKE_BINARY_DIR}/man/${page}.gz)
endforeach()
add_custom_target(duskwell_man ALL DEPENDS ${man_pages})
install(FILES ${man_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

set(completions ${CMAKE_SOURCE_DIR}/packaging/completions)
install(FILES ${completions}/duskwell.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME duskwell)
install(FILES ${completions}/duskwelld.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME duskwelld)
install(FILES ${completions}/_duskwell ${completions}/_duskwelld DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
install(FILES ${completions}/duskwell.fish ${completions}/duskwelld.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)

# The licence, as the Debian copyright file (machine-readable format, text from LICENSE).
file(READ ${CMAKE_SOURCE_DIR}/LICENSE license_text)
string(STRIP "${license_text}" license_text)
string(REGEX REPLACE "\n\n" "\n.\n" license_text "${license_text}")
string(REGEX REPLACE "\n" "\n " DUSKWELL_LICENSE_TEXT " ${license_text}")
configure_file(packaging/debian/copyright.in ${CMAKE_BINARY_DIR}/packaging/copyright @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/packaging/copyright DESTINATION ${DUSKWELL_DOCDIR})

# The systemd user unit and the URL handler, written for the prefix in use, then (only for a
# real install into this system: no DESTDIR, no package staging) the handler registered.
install(CODE "
  set(DUSKWELL_SOURCE_DIR \"${CMAKE_SOURCE_DIR}\")
  set(DUSKWELL_BINDIR \"${CMAKE_INSTALL_BINDIR}\")
  set(DUSKWELL_APPLICATIONS_DIR \"${CMAKE_INSTALL_DATADIR}/applications\")
  set(DUSKWELL_REGISTER_DESKTOP ${DUSKWELL_REGISTER_DESKTOP})
  include(\"${CMAKE_SOURCE_DIR}/packaging/linux/install_desktop_files.cmake\")
")
