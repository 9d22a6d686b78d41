# Velmora.app, included from the top-level CMakeLists.txt on Apple only:
#
#   Velmora.app/Contents/Info.plist                     data/macos/Info.plist.in
#   Velmora.app/Contents/MacOS/Velmora                  the velmora target
#   Velmora.app/Contents/Resources/Velmora.icns         drawn from data/icons/velmora.svg
#   Velmora.app/Contents/Helpers/Velmora Server.app/Contents/Info.plist
#                                                       data/macos/VelmoraServer-Info.plist.in
#   Velmora.app/Contents/Helpers/Velmora Server.app/Contents/MacOS/freerdp-shadow-cli
#                                                       VELMORA_MACOS_SHADOW_SERVER
#   Velmora.app/Contents/Helpers/Velmora Server.app/Contents/Resources/Velmora.icns
#
# The bundle is left unsigned: docs/macos.md signs it inside-out with one identity.

if(NOT TARGET velmora)
  return()
endif()

set(VELMORA_MACOS_SHADOW_SERVER "" CACHE FILEPATH
    "The macOS freerdp-shadow-cli (the MAC_SHADOW_* back end) to put into Velmora Server.app")

set(VELMORA_BUNDLE_ID com.velmora.app)
set(VELMORA_HELPER_BUNDLE_ID com.velmora.shadow)
set(VELMORA_MACOS_DIR ${CMAKE_BINARY_DIR}/macos)
# CFBundleIconFile of both property lists: both bundles show Velmora's icon.
set(VELMORA_ICON_FILE Velmora.icns)

# Both property lists are filled in here, so the generated files hold nothing CMake would expand
# again when it copies the application's list into the bundle.
configure_file(${CMAKE_SOURCE_DIR}/data/macos/Info.plist.in ${VELMORA_MACOS_DIR}/Info.plist @ONLY)
configure_file(${CMAKE_SOURCE_DIR}/data/macos/VelmoraServer-Info.plist.in
               ${VELMORA_MACOS_DIR}/VelmoraServer-Info.plist @ONLY)

set_target_properties(velmora PROPERTIES
  MACOSX_BUNDLE TRUE
  OUTPUT_NAME Velmora
  MACOSX_BUNDLE_INFO_PLIST ${VELMORA_MACOS_DIR}/Info.plist)

# The icon: the SVG drawn at every size of an icon set by rsvg-convert (Homebrew's librsvg; macOS
# draws no SVG from the command line), made into one .icns file by the system's iconutil.
find_program(VELMORA_RSVG_CONVERT rsvg-convert REQUIRED)
find_program(VELMORA_ICONUTIL iconutil REQUIRED)
set(svg ${CMAKE_SOURCE_DIR}/data/icons/velmora.svg)
set(iconset ${VELMORA_MACOS_DIR}/Velmora.iconset)
set(icns ${VELMORA_MACOS_DIR}/${VELMORA_ICON_FILE})
set(draw)
foreach(size 16 32 128 256 512)
  math(EXPR double "${size} * 2")
  list(APPEND draw
    COMMAND ${VELMORA_RSVG_CONVERT} -w ${size} -h ${size} -o ${iconset}/icon_${size}x${size}.png ${svg}
    COMMAND ${VELMORA_RSVG_CONVERT} -w ${double} -h ${double} -o ${iconset}/icon_${size}x${size}@2x.png ${svg})
endforeach()
add_custom_command(OUTPUT ${icns}
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${iconset}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${iconset}
  ${draw}
  COMMAND ${VELMORA_ICONUTIL} --convert icns --output ${icns} ${iconset}
  DEPENDS ${svg}
  COMMENT "Drawing ${VELMORA_ICON_FILE}"
  VERBATIM)
# Copied after velmora is linked, like the helper app below (the bundle is velmora's folder).
add_custom_target(velmora_icon ALL
  COMMAND ${CMAKE_COMMAND} -E make_directory "$<TARGET_BUNDLE_CONTENT_DIR:velmora>/Resources"
  COMMAND ${CMAKE_COMMAND} -E copy_if_different
          ${icns} "$<TARGET_BUNDLE_CONTENT_DIR:velmora>/Resources/${VELMORA_ICON_FILE}"
  DEPENDS ${icns}
  VERBATIM)
add_dependencies(velmora_icon velmora)

if(VELMORA_MACOS_SHADOW_SERVER)
  if(NOT EXISTS "${VELMORA_MACOS_SHADOW_SERVER}" OR IS_DIRECTORY "${VELMORA_MACOS_SHADOW_SERVER}")
    message(FATAL_ERROR "VELMORA_MACOS_SHADOW_SERVER is not a file: ${VELMORA_MACOS_SHADOW_SERVER}")
  endif()
  # A target of its own, run on every build after velmora is linked: a custom command attached to
  # velmora would have to live in the folder that defines it. Copies only what changed.
  set(helper "$<TARGET_BUNDLE_CONTENT_DIR:velmora>/Helpers/Velmora Server.app/Contents")
  add_custom_target(velmora_server_app ALL
    COMMAND ${CMAKE_COMMAND} -E make_directory "${helper}/MacOS" "${helper}/Resources"
    COMMAND ${CMAKE_COMMAND} -E copy_if_different
            ${VELMORA_MACOS_DIR}/VelmoraServer-Info.plist "${helper}/Info.plist"
    COMMAND ${CMAKE_COMMAND} -E copy_if_different
            "${VELMORA_MACOS_SHADOW_SERVER}" "${helper}/MacOS/freerdp-shadow-cli"
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${icns} "${helper}/Resources/${VELMORA_ICON_FILE}"
    DEPENDS ${icns}
    COMMENT "Copying Velmora Server.app into Velmora.app"
    VERBATIM)
  add_dependencies(velmora_server_app velmora)
else()
  message(WARNING "VELMORA_MACOS_SHADOW_SERVER is not set: Velmora.app is built without "
                  "Velmora Server.app, so it cannot start a server (KORVEN_CLI can name one instead)")
endif()
