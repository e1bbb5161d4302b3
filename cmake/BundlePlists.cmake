# The application bundle's Info.plist and the code-signing entitlements, configured from the
# build-time settings. Every platform configures them: the macOS build uses them, and elsewhere a
# test parses them, so that a broken template shows on any machine.
#
# Also a script: `cmake -D KVN_PLIST_OUTPUT_DIR=... -D KVN_SHORT_VERSION=... -P BundlePlists.cmake`
# configures the two files from the values given, which lets that test try awkward values.

set(KVN_PLIST_TEMPLATE_DIR "${CMAKE_CURRENT_LIST_DIR}/../packaging/macos")

# Text for the inside of an XML element. `$` and `@` are written as character references too:
# CMake configures MACOSX_BUNDLE_INFO_PLIST a second time, and a value holding "${...}" or
# "@...@" would otherwise be expanded then.
function(kvn_xml_escape out value)
  string(REPLACE "&" "&amp;" value "${value}")
  string(REPLACE "<" "&lt;" value "${value}")
  string(REPLACE ">" "&gt;" value "${value}")
  string(REPLACE "$" "&#36;" value "${value}")
  string(REPLACE "@" "&#64;" value "${value}")
  set(${out} "${value}" PARENT_SCOPE)
endfunction()

# Reads the KVN_* settings of the calling scope; writes Info.plist and entitlements.plist.
function(kvn_configure_bundle_plists output_dir)
  foreach(name IN ITEMS KVN_BUNDLE_NAME KVN_BUNDLE_IDENTIFIER KVN_SHORT_VERSION KVN_BUILD_VERSION
                        KVN_MINIMUM_SYSTEM_VERSION KVN_FEED_URL KVN_PUBLIC_ED_KEY KVN_RELEASE_CHANNEL)
    kvn_xml_escape(${name}_XML "${${name}}")
  endforeach()
  if(KVN_REPORT_DELIVERY_ENABLED)
    set(KVN_REPORT_DELIVERY_ENABLED_PLIST true)
  else()
    set(KVN_REPORT_DELIVERY_ENABLED_PLIST false)
  endif()
  configure_file("${KVN_PLIST_TEMPLATE_DIR}/Info.plist.in" "${output_dir}/Info.plist" @ONLY)
  configure_file("${KVN_PLIST_TEMPLATE_DIR}/entitlements.plist.in" "${output_dir}/entitlements.plist" @ONLY)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  if(NOT KVN_PLIST_OUTPUT_DIR)
    message(FATAL_ERROR "usage: cmake -D KVN_PLIST_OUTPUT_DIR=DIR [-D KVN_...=VALUE ...] -P BundlePlists.cmake")
  endif()
  kvn_configure_bundle_plists("${KVN_PLIST_OUTPUT_DIR}")
endif()
