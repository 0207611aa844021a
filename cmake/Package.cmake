# The Debian package: `cpack -G DEB` in a build folder configured with
# CMAKE_INSTALL_PREFIX=/usr (scripts/package.sh does both).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME limitra)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "Limitra")
set(CPACK_PACKAGE_CONTACT "Limitra developers <dev@limitra.app>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "tray gauge of the usage limits left on Claude Code and Codex")
set(CPACK_PACKAGE_DESCRIPTION
    "Limitra shows, next to a gauge in the system tray, how much of their Claude\n"
    "Code and Codex usage limits a developer has left, with a panel of every\n"
    "limit and its reset time. It reads the sessions that the two command-line\n"
    "tools already stored (secret store, ~/.claude/.credentials.json,\n"
    "~/.codex/auth.json) and refreshes an expired token. `limitra --check`\n"
    "prints the limits in a terminal. Its interface is in Spanish.")
string(JOIN "" CPACK_PACKAGE_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://limitra.app/")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# What the program opens at run time rather than links, so the library scan
# cannot see it: the QML modules that the panel and the windows import, and
# libcurl and libsecret, opened on first use. tests/package checks that every
# import of src/ui, every library opened by name and every module a snapshot
# loads is named here.
set(LIMITRA_RUNTIME_PACKAGES
    qml6-module-qtqml
    qml6-module-qtqml-workerscript
    qml6-module-qtquick
    qml6-module-qtquick-controls
    qml6-module-qtquick-templates
    libcurl4
    libsecret-1-0)
string(JOIN ", " CPACK_DEBIAN_PACKAGE_DEPENDS ${LIMITRA_RUNTIME_PACKAGES})
# The secret store, and the colour emoji that mark each service in the panel.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "gnome-keyring, fonts-noto-color-emoji")

include(CPack)
