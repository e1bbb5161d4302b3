# What an installation holds, and the packages made of it.
#
# Linux: a relocatable tree (bin/, share/korvane-launcher/, the desktop entry, the icon in
# hicolor sizes, the AppStream metadata); the programs find share/korvane-launcher from their
# own location, so the tree runs wherever it is unpacked. `cpack` makes a Debian package whose
# dependencies dpkg-shlibdeps reads from the binaries, and a .tar.gz of the same tree.
# macOS: the signed application bundle (KorvaneMacLauncher/CMakeLists.txt) in a disk image.

set(KVN_PACKAGE_OUTPUT_DIR "${PROJECT_BINARY_DIR}/packages" CACHE PATH "Where cpack writes the packages")

if(NOT APPLE)
  install(DIRECTORY resources/ DESTINATION share/korvane-launcher)

  # The application id names the desktop entry, the metadata and the icon alike, as the
  # AppStream rules expect.
  set(KVN_APP_ID "${KVN_BUNDLE_IDENTIFIER}")
  set(KVN_RELEASE_DATE "" CACHE STRING "Release date in the AppStream metadata (YYYY-MM-DD); empty: the day of the build, or SOURCE_DATE_EPOCH's")
  set(KVN_METAINFO_DATE "${KVN_RELEASE_DATE}")
  if(NOT KVN_METAINFO_DATE)
    string(TIMESTAMP KVN_METAINFO_DATE "%Y-%m-%d" UTC)
  endif()
  set(KVN_DESKTOP_FILE "${PROJECT_BINARY_DIR}/generated/linux/${KVN_APP_ID}.desktop")
  set(KVN_METAINFO_FILE "${PROJECT_BINARY_DIR}/generated/linux/${KVN_APP_ID}.metainfo.xml")
  configure_file(packaging/linux/desktop.in "${KVN_DESKTOP_FILE}" @ONLY)
  configure_file(packaging/linux/metainfo.xml.in "${KVN_METAINFO_FILE}" @ONLY)
  install(FILES "${KVN_DESKTOP_FILE}" DESTINATION share/applications)
  install(FILES "${KVN_METAINFO_FILE}" DESTINATION share/metainfo)

  install(FILES "${KVN_ICON_SVG}" DESTINATION share/icons/hicolor/scalable/apps RENAME "${KVN_APP_ID}.svg")
  set(KVN_ICON_PNGS)
  foreach(size IN ITEMS 16 24 32 48 64 128 256 512)
    set(png "${PROJECT_BINARY_DIR}/generated/icons/${size}/${KVN_APP_ID}.png")
    add_custom_command(OUTPUT "${png}"
      COMMAND "${KVN_RSVG_CONVERT}" -w ${size} -h ${size} -o "${png}" "${KVN_ICON_SVG}"
      DEPENDS "${KVN_ICON_SVG}"
      VERBATIM)
    list(APPEND KVN_ICON_PNGS "${png}")
    install(FILES "${png}" DESTINATION "share/icons/hicolor/${size}x${size}/apps")
  endforeach()
  add_custom_target(kvn_icons ALL DEPENDS ${KVN_ICON_PNGS})
endif()

set(CPACK_PACKAGE_NAME "korvane-launcher")
set(CPACK_PACKAGE_VERSION "${KVN_SHORT_VERSION}")
set(CPACK_PACKAGE_VENDOR "Korvane Mac Launcher developers")
set(CPACK_PACKAGE_CONTACT "Korvane Mac Launcher developers <launcher@korvane.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Unofficial community launcher for the Korvane multiplayer mod of ETS2 and ATS in CrossOver")
set(CPACK_PACKAGE_DESCRIPTION
  "The Korvane launcher finds your CrossOver bottles, checks that Steam, the game and the Korvane
client are ready, compares the installed game version with the versions the Korvane service
supports, configures the bottle and starts Euro Truck Simulator 2 or American Truck Simulator
with the Korvane multiplayer client, showing its console and retrying a frozen load.")
set(CPACK_OUTPUT_FILE_PREFIX "${KVN_PACKAGE_OUTPUT_DIR}")
set(CPACK_STRIP_FILES ON)
set(CPACK_SOURCE_GENERATOR "")

if(APPLE)
  set(CPACK_GENERATOR DragNDrop)
  set(CPACK_DMG_VOLUME_NAME "${KVN_BUNDLE_NAME}")
  set(CPACK_DMG_FORMAT UDZO)
  # Stripping would change the signed binaries; the release build carries no debug info anyway.
  set(CPACK_STRIP_FILES OFF)
  set(CPACK_PACKAGE_FILE_NAME "Korvane-Mac-Launcher-${KVN_SHORT_VERSION}")
else()
  set(CPACK_GENERATOR DEB TGZ)
  set(CPACK_PACKAGE_FILE_NAME "korvane-launcher-${KVN_SHORT_VERSION}-linux-${CMAKE_SYSTEM_PROCESSOR}")
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION games)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  # Beside the libraries dpkg-shlibdeps finds in the binaries: Qt's platform plug-ins, which the
  # window needs and no binary links, and zsh, which runs every launch script.
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, zsh")
  set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "ca-certificates")
endif()

# A release signs the tree of its .tar.gz with the key whose public half the build carries.
set(KVN_SIGNING_KEY_FILE "" CACHE FILEPATH
  "Secret key (korvane-release keygen) that signs the .tar.gz tree; empty: the tree is unsigned and cannot update itself")
if(NOT APPLE AND KVN_SIGNING_KEY_FILE)
  if(NOT KVN_PUBLIC_ED_KEY)
    message(FATAL_ERROR "KVN_SIGNING_KEY_FILE needs KVN_PUBLIC_ED_KEY, its public key (korvane-release public-key)")
  endif()
  set(KVN_RELEASE_TOOL "$<TARGET_FILE:korvane-release>")
  configure_file(cmake/SignTree.cmake.in "${PROJECT_BINARY_DIR}/generated/SignTree.cmake.gen" @ONLY)
  file(GENERATE OUTPUT "${PROJECT_BINARY_DIR}/generated/SignTree.cmake"
       INPUT "${PROJECT_BINARY_DIR}/generated/SignTree.cmake.gen")
  set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_BINARY_DIR}/generated/SignTree.cmake")
endif()

include(CPack)
