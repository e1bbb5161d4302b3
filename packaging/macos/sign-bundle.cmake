# Signs the installed application bundle from the inside out with the hardened runtime: first
# every library, framework and plug-in that was deployed into it, then korvanectl, then the
# application itself with its entitlements. A signature covers what is inside, so an inner part
# signed after its container would invalidate the container's signature.
#
# Expects KVN_BUNDLE_PATH, KVN_CODESIGN_IDENTITY ("-" for ad hoc) and KVN_ENTITLEMENTS.

find_program(KVN_CODESIGN codesign REQUIRED)
set(KVN_SIGN_OPTIONS --force --options runtime --sign "${KVN_CODESIGN_IDENTITY}")
if(KVN_CODESIGN_IDENTITY STREQUAL "-")
  # An ad hoc signature has no secure timestamp to ask for.
  list(APPEND KVN_SIGN_OPTIONS --timestamp=none)
else()
  list(APPEND KVN_SIGN_OPTIONS --timestamp)
endif()

function(kvn_codesign path)
  message(STATUS "Signing ${path}")
  execute_process(COMMAND "${KVN_CODESIGN}" ${KVN_SIGN_OPTIONS} ${ARGN} "${path}"
                  COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(contents "${KVN_BUNDLE_PATH}/Contents")
file(GLOB_RECURSE dylibs LIST_DIRECTORIES false
  "${contents}/Frameworks/*.dylib" "${contents}/PlugIns/*.dylib")
foreach(library IN LISTS dylibs)
  kvn_codesign("${library}")
endforeach()
# Sparkle's helpers are signed before its framework, as Sparkle's documentation asks; the
# downloader keeps the entitlements it shipped with.
set(sparkle "${contents}/Frameworks/Sparkle.framework/Versions/B")
if(EXISTS "${sparkle}")
  kvn_codesign("${sparkle}/XPCServices/Installer.xpc")
  kvn_codesign("${sparkle}/XPCServices/Downloader.xpc" --preserve-metadata=entitlements)
  kvn_codesign("${sparkle}/Autoupdate")
  kvn_codesign("${sparkle}/Updater.app")
endif()
file(GLOB frameworks LIST_DIRECTORIES true "${contents}/Frameworks/*.framework")
foreach(framework IN LISTS frameworks)
  kvn_codesign("${framework}")
endforeach()
kvn_codesign("${contents}/MacOS/korvanectl")
kvn_codesign("${KVN_BUNDLE_PATH}" --entitlements "${KVN_ENTITLEMENTS}")
execute_process(COMMAND "${KVN_CODESIGN}" --verify --deep --strict "${KVN_BUNDLE_PATH}"
                COMMAND_ERROR_IS_FATAL ANY)
