# One INTERFACE target carries the language level, the warnings and Qt's strictness
# defines; every target of the project links it.
add_library(kvn_build_settings INTERFACE)
target_compile_features(kvn_build_settings INTERFACE cxx_std_20)
target_compile_options(kvn_build_settings INTERFACE -Wall -Wextra
  # Every .mm file leaves the reference counting of Objective-C objects to the compiler (ARC).
  $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-arc>)
target_compile_definitions(kvn_build_settings INTERFACE
  QT_NO_CAST_FROM_ASCII
  QT_NO_CAST_TO_ASCII
  QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
  QT_USE_QSTRINGBUILDER
  QT_NO_KEYWORDS
  QT_NO_FOREACH)
if(KVN_WERROR)
  target_compile_options(kvn_build_settings INTERFACE -Werror)
endif()

# Every source of the GUI-free library, gathered per subsystem folder so that adding a file
# never means editing a shared list. Platform implementations are picked by suffix:
# *_mac.mm / *_mac.cpp only on macOS, *_linux.cpp only elsewhere, *_fake.cpp only in tests.
function(kvn_collect_sources out)
  set(result)
  foreach(dir IN LISTS ARGN)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS
      "${PROJECT_SOURCE_DIR}/${dir}/*.cpp" "${PROJECT_SOURCE_DIR}/${dir}/*.h"
      "${PROJECT_SOURCE_DIR}/${dir}/*.mm")
    list(APPEND result ${found})
  endforeach()
  list(FILTER result EXCLUDE REGEX "_fake\\.(cpp|h)$")
  if(APPLE)
    list(FILTER result EXCLUDE REGEX "_linux\\.(cpp|h)$")
  else()
    list(FILTER result EXCLUDE REGEX "_mac\\.(cpp|h|mm)$")
  endif()
  set(${out} ${result} PARENT_SCOPE)
endfunction()
