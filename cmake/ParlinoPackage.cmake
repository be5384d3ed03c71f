# Desktop integration installed beside the binary, and the Debian package CPack makes of it
# (scripts/package). Paths follow GNUInstallDirs; the package installs under /usr.

set(PARLINO_RESOURCES ${PROJECT_SOURCE_DIR}/resources)
set(PARLINO_DEBIAN_VERSION ${PROJECT_VERSION}-1)

install(FILES ${PARLINO_RESOURCES}/com.parlino.app.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${PARLINO_RESOURCES}/com.parlino.app.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
configure_file(${PARLINO_RESOURCES}/com.parlino.app.service.in ${PROJECT_BINARY_DIR}/com.parlino.app.service @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/com.parlino.app.service DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/services)
# Off for everyone until a user turns on "start at login"; the user's own entry of the same name wins.
install(FILES ${PARLINO_RESOURCES}/autostart/parlino.desktop DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/xdg/autostart)
install(FILES ${PARLINO_RESOURCES}/completion/parlino DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

# Icons: the scalable mark, the symbolic one for panels, and bitmaps drawn from the scalable one.
set(PARLINO_ICONS ${PARLINO_RESOURCES}/icons/hicolor)
install(FILES ${PARLINO_ICONS}/parlino.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
install(FILES ${PARLINO_ICONS}/parlino-symbolic.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/symbolic/apps)
find_program(PARLINO_RSVG_CONVERT rsvg-convert)
if(PARLINO_RSVG_CONVERT)
    set(rendered)
    foreach(size 16 24 32 48 64 128 256)
        set(png ${PROJECT_BINARY_DIR}/icons/${size}x${size}/parlino.png)
        add_custom_command(OUTPUT ${png} COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/icons/${size}x${size}
            COMMAND ${PARLINO_RSVG_CONVERT} --width ${size} --height ${size} --output ${png} ${PARLINO_ICONS}/parlino.svg
            DEPENDS ${PARLINO_ICONS}/parlino.svg VERBATIM)
        install(FILES ${png} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps)
        list(APPEND rendered ${png})
    endforeach()
    add_custom_target(parlino_icons ALL DEPENDS ${rendered})
else()
    message(STATUS "rsvg-convert not found: only the scalable icons are installed (scripts/install-deps adds it)")
    install(FILES ${PARLINO_RESOURCES}/icons/parlino.png DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/256x256/apps)
endif()

# The manual page is the --help text, laid out by help2man from the built binary.
find_program(PARLINO_HELP2MAN help2man)
find_program(PARLINO_GZIP gzip)
if(PARLINO_HELP2MAN AND PARLINO_GZIP)
    set(manpage ${PROJECT_BINARY_DIR}/parlino.1)
    add_custom_command(OUTPUT ${manpage}.gz
        COMMAND ${PARLINO_HELP2MAN} --no-info --no-discard-stderr --section 1 --name "reads selected text aloud"
            --output ${manpage} $<TARGET_FILE:parlino>
        COMMAND ${PARLINO_GZIP} -9nf ${manpage}
        DEPENDS parlino VERBATIM)
    add_custom_target(parlino_manpage ALL DEPENDS ${manpage}.gz)
    install(FILES ${manpage}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
else()
    message(STATUS "help2man or gzip not found: no manual page (scripts/install-deps adds help2man)")
endif()

# What Debian expects in /usr/share/doc/parlino.
set(PARLINO_DOCDIR ${CMAKE_INSTALL_DATADIR}/doc/parlino)
install(FILES ${PARLINO_RESOURCES}/debian/copyright DESTINATION ${PARLINO_DOCDIR})
install(FILES ${PARLINO_RESOURCES}/debian/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
        RENAME parlino)
if(PARLINO_GZIP)
    configure_file(${PARLINO_RESOURCES}/debian/changelog.in ${PROJECT_BINARY_DIR}/changelog.Debian @ONLY)
    add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/changelog.Debian.gz
        COMMAND ${PARLINO_GZIP} -9nfk ${PROJECT_BINARY_DIR}/changelog.Debian
        DEPENDS ${PROJECT_BINARY_DIR}/changelog.Debian VERBATIM)
    add_custom_target(parlino_changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/changelog.Debian.gz)
    install(FILES ${PROJECT_BINARY_DIR}/changelog.Debian.gz DESTINATION ${PARLINO_DOCDIR})
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME parlino)
set(CPACK_PACKAGE_VENDOR Parlino)
set(CPACK_PACKAGE_CONTACT "Parlino <hello@parlino.app>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "tray app that reads selected text aloud")
# Lines under 80 characters, as Debian descriptions want.
string(JOIN "\n" CPACK_PACKAGE_DESCRIPTION
    "Parlino lives in the system tray. Select text in any application and press"
    "Super+Shift+R: it is read aloud in a small floating player with speed"
    "control, seeking and pause. Speech comes from OpenAI, or from the offline"
    "eSpeak NG voice without a key or a connection. Readings can be saved to a"
    "library, downloaded as MP3 files or turned into podcasts.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://parlino.app)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Loaded by name at run time, so the linker cannot see them: Qt's platform, image and TLS plugins,
# the Secret Service library behind the keyring, eSpeak NG's voices and the speech recognizer's model.
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libsecret-1-0, libssl3, qt6-qpa-plugins, qt6-wayland, libqt6svg6, espeak-ng-data, pocketsphinx-en-us, hicolor-icon-theme")
# gdbus runs the desktop entry's read-selection action on launchers that do not speak D-Bus themselves.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libglib2.0-bin, gnome-keyring | kwalletmanager")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PARLINO_RESOURCES}/debian/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
