# Installation on freedesktop systems (Linux and the like) and the Debian package CPack builds from the same
# rules: `cpack -G DEB` in a build configured with CMAKE_INSTALL_PREFIX=/usr, as `./dev.sh package` does.
include(GNUInstallDirs)

if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    # Relocations resolved at start and then read-only, as Debian links its own programs.
    target_link_options(vontrel PRIVATE -Wl,-z,relro,-z,now)
    target_link_options(vontrel-cli PRIVATE -Wl,-z,relro,-z,now)
endif()
install(TARGETS vontrel vontrel-cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES resources/${VONTREL_APP_ID}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES resources/${VONTREL_APP_ID}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

# The hicolor theme is where desktops look for an application's icon; panels and menus ask for the small
# sizes, software centres for 128 and up.
set(_vontrel_icons ${CMAKE_INSTALL_DATADIR}/icons/hicolor)
install(FILES resources/icons/source/icon_512x512.svg DESTINATION ${_vontrel_icons}/scalable/apps
    RENAME ${VONTREL_APP_ID}.svg)
foreach(size 16 22 24 32 48 64 128 256 512)
    install(FILES resources/icons/hicolor/${size}x${size}/${VONTREL_APP_ID}.png
        DESTINATION ${_vontrel_icons}/${size}x${size}/apps)
endforeach()

# Manual pages go in compressed, as Debian's man-db expects them; -n keeps the archive free of time stamps.
find_program(VONTREL_GZIP gzip REQUIRED)
set(_vontrel_man_pages)
foreach(page vontrel vontrel-cli)
    set(_page ${CMAKE_BINARY_DIR}/man/${page}.1)
    add_custom_command(OUTPUT ${_page}.gz
        COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/man/${page}.1 ${_page}
        COMMAND ${VONTREL_GZIP} -9nf ${_page}
        DEPENDS ${PROJECT_SOURCE_DIR}/man/${page}.1
        VERBATIM)
    list(APPEND _vontrel_man_pages ${_page}.gz)
endforeach()
# Debian keeps a native package's change log beside its documentation, compressed the same way.
set(_vontrel_changelog ${CMAKE_BINARY_DIR}/doc/changelog)
add_custom_command(OUTPUT ${_vontrel_changelog}.gz
    COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/packaging/changelog ${_vontrel_changelog}
    COMMAND ${VONTREL_GZIP} -9nf ${_vontrel_changelog}
    DEPENDS ${PROJECT_SOURCE_DIR}/packaging/changelog
    VERBATIM)
add_custom_target(man_pages ALL DEPENDS ${_vontrel_man_pages} ${_vontrel_changelog}.gz)
install(FILES ${_vontrel_man_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${_vontrel_changelog}.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/vontrel)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vontrel)
set(CPACK_PACKAGE_VENDOR "The Vontrel developers")
set(CPACK_PACKAGE_CONTACT "The Vontrel developers <packages@vontrel.app>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Translate text on screen or in the selection with an AI service")
set(CPACK_PACKAGE_DESCRIPTION "Vontrel sits in the system tray. A hotkey lets you drag a rectangle over the
screen: the text in it is recognised with Tesseract and translated by an
OpenAI-compatible chat-completions service, whose answer streams into a small
floating window. A second hotkey translates the selected or clipboard text.
Works on X11 and, through the XDG desktop portal, on Wayland.

vontrel-cli recognises text in images and translates text from a terminal.")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://vontrel.app")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
# The libraries the executables link, from dpkg-shlibdeps; then what is only loaded at run time: the
# recognition data and Qt's Wayland platform plugin (the X11 one and the SVG plugins come with the libraries
# that shlibdeps finds).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "tesseract-ocr-eng, tesseract-ocr-chi-sim, qt6-wayland")
# Providers are reached over HTTPS. A Wayland desktop brings its own portal; the CJK fonts show the Chinese
# interface.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "ca-certificates")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "xdg-desktop-portal, fonts-noto-cjk")
include(CPack)
