#!/usr/bin/env python3
"""Checks the macOS bundle's Info.plist, entitlements and InfoPlist.strings on any machine.

Usage: bundle_plists.py CMAKE GENERATED_DIR PACKAGING_DIR KEY=VALUE...
  GENERATED_DIR  the Info.plist and entitlements.plist this build configured
  PACKAGING_DIR  packaging/macos: the templates, BundlePlists.cmake's neighbours, the .lproj folders
  KEY=VALUE      what the build's settings say the Info.plist holds (CFBundleIdentifier=..., ...)
Exit status 0 when everything holds; otherwise each fault is named on stderr and the status is 1.
"""

import os
import plistlib
import re
import subprocess
import sys
import tempfile

faults = []


def fault(message):
    faults.append(message)


def load(path):
    try:
        with open(path, "rb") as handle:
            return plistlib.load(handle)
    except Exception as error:  # any parse error is the finding itself
        fault(f"{path}: does not parse as a property list: {error}")
        return None


STRINGS_LINE = re.compile(r'^"((?:[^"\\]|\\.)*)"\s*=\s*"((?:[^"\\]|\\.)*)";$')


def load_strings(path):
    """An old-style .strings file of one-line entries and /* */ comments, as we write them."""
    entries = {}
    with open(path, encoding="utf-8") as handle:
        for number, line in enumerate(handle, 1):
            line = line.strip()
            if not line or (line.startswith("/*") and line.endswith("*/")):
                continue
            match = STRINGS_LINE.match(line)
            if not match:
                fault(f"{path}:{number}: not a \"key\" = \"value\"; line")
                continue
            entries[match.group(1)] = match.group(2)
    return entries


def check_info(info, expected, where):
    if info is None:
        return
    for key, value in expected.items():
        if info.get(key) != value:
            fault(f"{where}: {key} is {info.get(key)!r}, the settings say {value!r}")
    fixed = {"NSPrincipalClass": "NSApplication", "CFBundleInfoDictionaryVersion": "6.0",
             "CFBundlePackageType": "APPL"}
    for key, value in fixed.items():
        if info.get(key) != value:
            fault(f"{where}: {key} is {info.get(key)!r}, expected {value!r}")
    for key in ("NSMicrophoneUsageDescription", "NSDocumentsFolderUsageDescription"):
        if not isinstance(info.get(key), str) or not info[key].strip():
            fault(f"{where}: {key} is missing or empty")
    if not isinstance(info.get("KVNReportDeliveryEnabled"), bool):
        fault(f"{where}: KVNReportDeliveryEnabled is not a boolean")
    for key in ("SUFeedURL", "SUPublicEDKey", "KVNReleaseChannel", "CFBundleVersion"):
        if not isinstance(info.get(key), str):
            fault(f"{where}: {key} is not a string")
    if info.get("CFBundleExecutable") != info.get("CFBundleName"):
        fault(f"{where}: CFBundleExecutable differs from the bundle's name")


def check_entitlements(entitlements, where):
    if entitlements is None:
        return
    if entitlements.get("com.apple.security.device.audio-input") is not True:
        fault(f"{where}: the microphone entitlement is missing")
    if any(key.startswith("com.apple.security.app-sandbox") for key in entitlements):
        fault(f"{where}: asks for the App Sandbox, in which the launcher cannot run script or edit bottles")


def check_translations(info, packaging):
    if info is None:
        return
    described = {key for key in info if key.endswith("UsageDescription")}
    for language in ("en", "de", "hu"):
        path = os.path.join(packaging, f"{language}.lproj", "InfoPlist.strings")
        if not os.path.isfile(path):
            fault(f"{path}: missing")
            continue
        entries = load_strings(path)
        if set(entries) != described:
            fault(f"{path}: translates {sorted(entries)}, the Info.plist has {sorted(described)}")
        for key, value in entries.items():
            if not value.strip():
                fault(f"{path}: {key} is empty")
            if language == "en" and key in info and value != info[key]:
                fault(f"{path}: {key} differs from the Info.plist's English text")


def check_awkward_values(cmake, packaging):
    """Settings with XML's and CMake's special characters come through both configure steps."""
    awkward = {
        "KVN_BUNDLE_NAME": "Korvane Mac Launcher",
        "KVN_BUNDLE_IDENTIFIER": "hu.korvane.maclauncher.preview",
        "KVN_SHORT_VERSION": "2.0 <beta> & 'co' \"x\"",
        "KVN_BUILD_VERSION": "45",
        "KVN_MINIMUM_SYSTEM_VERSION": "13.0",
        "KVN_FEED_URL": "https://updates.example/appcast.xml?a=1&b=${HOME}",
        "KVN_PUBLIC_ED_KEY": "@KVN_BUILD_VERSION@",
        "KVN_RELEASE_CHANNEL": "beta]]>",
        "KVN_REPORT_DELIVERY_ENABLED": "ON",
    }
    script = os.path.join(packaging, "..", "..", "cmake", "BundlePlists.cmake")
    with tempfile.TemporaryDirectory() as folder:
        command = [cmake, f"-DKVN_PLIST_OUTPUT_DIR={folder}"]
        command += [f"-D{name}={value}" for name, value in awkward.items()]
        command += ["-P", script]
        result = subprocess.run(command, capture_output=True, text=True)
        if result.returncode != 0:
            fault(f"configuring with awkward values failed: {result.stderr.strip()}")
            return
        # The bundle build configures the finished file once more (MACOSX_BUNDLE_INFO_PLIST).
        again = os.path.join(folder, "again.cmake")
        with open(again, "w", encoding="utf-8") as handle:
            handle.write(f'configure_file("{folder}/Info.plist" "{folder}/Info.again.plist")\n')
        result = subprocess.run([cmake, "-DKVN_BUILD_VERSION=changed", "-P", again],
                                capture_output=True, text=True)
        if result.returncode != 0:
            fault(f"configuring the Info.plist a second time failed: {result.stderr.strip()}")
            return
        expected = {"CFBundleIdentifier": awkward["KVN_BUNDLE_IDENTIFIER"],
                    "CFBundleShortVersionString": awkward["KVN_SHORT_VERSION"],
                    "SUFeedURL": awkward["KVN_FEED_URL"],
                    "SUPublicEDKey": awkward["KVN_PUBLIC_ED_KEY"],
                    "KVNReleaseChannel": awkward["KVN_RELEASE_CHANNEL"],
                    "KVNReportDeliveryEnabled": True}
        for name in ("Info.plist", "Info.again.plist"):
            check_info(load(os.path.join(folder, name)), expected, f"awkward values, {name}")


def main(argv):
    if len(argv) < 4:
        print(__doc__, file=sys.stderr)
        return 2
    cmake, generated, packaging = argv[1:4]
    expected = dict(argument.split("=", 1) for argument in argv[4:])
    info = load(os.path.join(generated, "Info.plist"))
    check_info(info, expected, "Info.plist")
    check_entitlements(load(os.path.join(generated, "entitlements.plist")), "entitlements.plist")
    check_translations(info, packaging)
    check_awkward_values(cmake, packaging)
    for message in faults:
        print(message, file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
