# The Debian package: `cpack` in the build folder writes duskwell_<version>_<arch>.deb.
# Build it from a Release build without the tests (test builds honour DUSKWELL_TEST_*):
#   cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=Release -DDUSKWELL_TESTS=OFF
#   cmake --build build-release && (cd build-release && cpack)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME duskwell)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "The Duskwell authors")
set(CPACK_PACKAGE_CONTACT "The Duskwell authors <hello@duskwell.app>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "keeps the machine awake while AI coding agents work")
set(CPACK_PACKAGE_DESCRIPTION
"Duskwell keeps a laptop awake, also with the lid closed, while AI coding agents
and local model runners work, and lets it sleep when they finish, when a timer
runs out, when the battery runs low or when it gets too hot. It runs as the
duskwelld user service with a terminal dashboard, takes commands from the
duskwell command and duskwell:// links, and can alert a phone through ntfy.")
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_SOURCE_DIR}/LICENSE)

# The unit and the URL handler name /usr/bin/duskwelld: CPack must install with the final
# prefix and stage through DESTDIR, not with the staging folder as the prefix.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://duskwell.app)
# Listed by hand: libcurl is opened with dlopen on the first request, so dpkg-shlibdeps
# cannot see it; libsystemd0 is the D-Bus client. scripts/check-install compares this list
# with what the installed programs actually load.
set(CPACK_DEBIAN_PACKAGE_DEPENDS
  "libc6 (>= 2.34), libgcc-s1 (>= 3.0), libstdc++6 (>= 12), libqrencode4 (>= 3.2.0), libcurl4 (>= 7.16.2) | libcurl4t64, libsystemd0")
# sudo or pkexec install the power helper; notify-send shows alerts; xdg-open opens links.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "sudo, pkexec | policykit-1, libnotify-bin, xdg-utils")
# Power profiles and the power-off notice (gdbus) are used when present.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "power-profiles-daemon, libglib2.0-bin")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${CMAKE_SOURCE_DIR}/packaging/debian/postinst ${CMAKE_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The release tarball the Homebrew formula builds from:
#   cpack --config build/CPackSourceConfig.cmake  ->  duskwell-<version>.tar.gz
set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME duskwell-${PROJECT_VERSION})
set(CPACK_SOURCE_IGNORE_FILES "/\\\\.git/" "/\\\\.git$" "/\\\\.cache/" "/build/" "/build-[^/]*/" "/Testing/"
  "/_CPack_Packages/" "\\\\.deb$" "\\\\.tar\\\\.gz$")

include(CPack)
