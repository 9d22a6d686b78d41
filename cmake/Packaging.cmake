# Install rules and the Debian package (CPack's DEB generator): scripts/package.sh builds it.
# The installed layout is the build tree's: bin/velmora finds libexec/velmora/velmora-server beside it.
if(NOT TARGET velmora OR NOT TARGET velmora-server)
  return()
endif()

install(TARGETS velmora RUNTIME DESTINATION bin)
install(TARGETS velmora-server RUNTIME DESTINATION libexec/velmora)
install(FILES ${PROJECT_SOURCE_DIR}/data/velmora.desktop DESTINATION share/applications)
install(FILES ${PROJECT_SOURCE_DIR}/data/icons/velmora.svg DESTINATION share/icons/hicolor/scalable/apps)
# A user unit for desktops without a tray; installed, never enabled by the package.
install(FILES ${PROJECT_SOURCE_DIR}/data/velmora.service DESTINATION lib/systemd/user)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/data/copyright DESTINATION share/doc/velmora)

# The changelog (changelog.gz: the package is native, its version has no Debian revision) and the
# manual page, compressed as Debian wants them: gzip -9, no name or time stamp inside, so that the
# same sources give the same package.
function(velmora_gzip source output destination)
  add_custom_command(OUTPUT ${output}
    COMMAND sh -c "gzip -9n -c \"$1\" > \"$2\"" sh ${source} ${output}
    DEPENDS ${source}
    VERBATIM)
  install(FILES ${output} DESTINATION ${destination})
endfunction()
velmora_gzip(${PROJECT_SOURCE_DIR}/data/changelog ${CMAKE_BINARY_DIR}/share/changelog.gz share/doc/velmora)
velmora_gzip(${PROJECT_SOURCE_DIR}/data/velmora.1 ${CMAKE_BINARY_DIR}/share/velmora.1.gz share/man/man1)
add_custom_target(velmora_gzipped_docs ALL
  DEPENDS ${CMAKE_BINARY_DIR}/share/changelog.gz ${CMAKE_BINARY_DIR}/share/velmora.1.gz)

# Menus and docks that cannot draw SVG take the 48x48 bitmap, made from the SVG at build time.
find_program(VELMORA_RSVG_CONVERT rsvg-convert)
if(VELMORA_RSVG_CONVERT)
  set(icon_png ${CMAKE_BINARY_DIR}/share/icons/hicolor/48x48/apps/velmora.png)
  add_custom_command(OUTPUT ${icon_png}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/share/icons/hicolor/48x48/apps
    COMMAND ${VELMORA_RSVG_CONVERT} --width 48 --height 48 --format png
            --output ${icon_png} ${PROJECT_SOURCE_DIR}/data/icons/velmora.svg
    DEPENDS ${PROJECT_SOURCE_DIR}/data/icons/velmora.svg
    COMMENT "Drawing the 48x48 icon")
  add_custom_target(velmora_icon_png ALL DEPENDS ${icon_png})
  install(FILES ${icon_png} DESTINATION share/icons/hicolor/48x48/apps)
else()
  message(WARNING "rsvg-convert (librsvg2-bin) not found: the package will lack the 48x48 icon")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velmora)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "Velmora")
set(CPACK_PACKAGE_CONTACT "Velmora maintainers <maintainers@velmora.app>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "lets Windows Remote Desktop clients see and control this computer")
# The long description, below the summary line.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
  "Velmora keeps the settings of a FreeRDP shadow server, starts and supervises
it, checks that it may read the screen and send input, keeps a Windows login
(NLA) in the system keyring, tests the connection and writes a diagnostics
report. It runs in the tray, or without any window as `velmora --headless`.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# What dpkg-shlibdeps cannot see: programs Velmora runs and Qt plugins it loads at run time. It
# sees velmora-server's FreeRDP libraries (the shadow server and Debian's X11 subsystem) but asks
# for any 2.x; the server relies on what 2.11 does.
set(CPACK_DEBIAN_PACKAGE_DEPENDS
  "libfreerdp-shadow2-2 (>= 2.11), libfreerdp-shadow-subsystem2-2 (>= 2.11), lsof, libqt6svg6, qt6-qpa-plugins")
# Any Secret Service keeps the Windows login; GNOME's is the common one.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "gnome-keyring")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
