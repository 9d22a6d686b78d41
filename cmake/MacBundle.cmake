# Velmora.app, included from the top-level CMakeLists.txt on Apple only:
#
#   Velmora.app/Contents/Info.plist                     data/macos/Info.plist.in
#   Velmora.app/Contents/MacOS/Velmora                  the velmora target
#   Velmora.app/Contents/Helpers/Velmora Server.app/Contents/Info.plist
#                                                       data/macos/VelmoraServer-Info.plist.in
#   Velmora.app/Contents/Helpers/Velmora Server.app/Contents/MacOS/freerdp-shadow-cli
#                                                       VELMORA_MACOS_SHADOW_SERVER
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

# Both property lists are filled in here, so the generated files hold nothing CMake would expand
# again when it copies the application's list into the bundle.
configure_file(${CMAKE_SOURCE_DIR}/data/macos/Info.plist.in ${VELMORA_MACOS_DIR}/Info.plist @ONLY)
configure_file(${CMAKE_SOURCE_DIR}/data/macos/VelmoraServer-Info.plist.in
               ${VELMORA_MACOS_DIR}/VelmoraServer-Info.plist @ONLY)

set_target_properties(velmora PROPERTIES
  MACOSX_BUNDLE TRUE
  OUTPUT_NAME Velmora
  MACOSX_BUNDLE_INFO_PLIST ${VELMORA_MACOS_DIR}/Info.plist)

if(VELMORA_MACOS_SHADOW_SERVER)
  if(NOT EXISTS "${VELMORA_MACOS_SHADOW_SERVER}" OR IS_DIRECTORY "${VELMORA_MACOS_SHADOW_SERVER}")
    message(FATAL_ERROR "VELMORA_MACOS_SHADOW_SERVER is not a file: ${VELMORA_MACOS_SHADOW_SERVER}")
  endif()
  # A target of its own, run on every build after velmora is linked: a custom command attached to
  # velmora would have to live in the folder that defines it. Copies only what changed.
  set(helper "$<TARGET_BUNDLE_CONTENT_DIR:velmora>/Helpers/Velmora Server.app/Contents")
  add_custom_target(velmora_server_app ALL
    COMMAND ${CMAKE_COMMAND} -E make_directory "${helper}/MacOS"
    COMMAND ${CMAKE_COMMAND} -E copy_if_different
            ${VELMORA_MACOS_DIR}/VelmoraServer-Info.plist "${helper}/Info.plist"
    COMMAND ${CMAKE_COMMAND} -E copy_if_different
            "${VELMORA_MACOS_SHADOW_SERVER}" "${helper}/MacOS/freerdp-shadow-cli"
    COMMENT "Copying Velmora Server.app into Velmora.app"
    VERBATIM)
  add_dependencies(velmora_server_app velmora)
else()
  message(WARNING "VELMORA_MACOS_SHADOW_SERVER is not set: Velmora.app is built without "
                  "Velmora Server.app, so it cannot start a server (KORVEN_CLI can name one instead)")
endif()
