#!/usr/bin/env python3
"""Fails when a source file includes a header from a folder that may not be below it.

The folders form one order, bottom to top; a file includes only from its own folder and from
folders of lower layers. Two folders of one layer stay independent of each other, except along
the sibling edges listed below, which must not form a circle of their own.

Usage: include_order.py [SOURCE_ROOT]   (default: the folder above this script)
Exit status: 0 when every include is in order, 1 when one is not (each named on stderr as
FILE:LINE: ...), 2 when the root holds no layered sources or the rule itself is inconsistent.
"""

import os
import re
import sys

LAYERS = [
    ("platform",),
    ("games", "preferences"),
    ("servers", "sessions"),
    ("crossover",),
    ("core",),
    ("updates",),
    ("cli", "KorvaneMacLauncher", "release"),
    # Tests, benchmarks and fuzz targets exercise everything; nothing may include them.
    ("tests", "bench", "fuzz"),
]

# Sibling edges: (including folder, included folder) within one layer, each pointing to a folder
# listed before its own in the layer, so that they cannot form a circle.
# The settings document carries both games' profiles, so preferences reads the game profile
# records; games never needs a text, a language or a window preference.
SIBLING_EDGES = {("preferences", "games")}

# Folders whose own files are not checked: they may include anything.
UNCHECKED = {"tests", "bench", "fuzz"}

SOURCE_SUFFIXES = (".h", ".hpp", ".cpp", ".cc", ".mm", ".m")
INCLUDE = re.compile(r'^\s*#\s*(?:include|import)\s*[<"]([^>"]+)[>"]')


def layer_of():
    return {folder: index for index, folders in enumerate(LAYERS) for folder in folders}


def inconsistent_sibling_edge(layers):
    """An allowed sibling edge that is not within one layer or does not point to a folder listed
    before its own; keeping every edge pointing backwards in the layer rules out a circle."""
    for source, target in sorted(SIBLING_EDGES):
        if source not in layers or target not in layers or layers[source] != layers[target]:
            return source, target
        folders = LAYERS[layers[source]]
        if folders.index(target) >= folders.index(source):
            return source, target
    return None


def verdict(source, target, layers):
    """Why `source` may not include from `target`, or None when it may."""
    if source == target or target not in layers:
        return None
    if layers[target] < layers[source]:
        return None
    if layers[target] > layers[source]:
        return (f"{target}/ (layer {layers[target]}) is above {source}/ (layer {layers[source]})")
    if (source, target) in SIBLING_EDGES:
        return None
    return (f"{target}/ shares layer {layers[source]} with {source}/, and {source}/ may not use it")


def violations(root):
    layers = layer_of()
    found = []
    checked = 0
    for folder in sorted(layers):
        if folder in UNCHECKED:
            continue
        top = os.path.join(root, folder)
        for directory, subdirectories, files in os.walk(top):
            subdirectories.sort()
            for name in sorted(files):
                if not name.endswith(SOURCE_SUFFIXES):
                    continue
                path = os.path.join(directory, name)
                checked += 1
                with open(path, encoding="utf-8", errors="replace") as source_file:
                    for number, line in enumerate(source_file, start=1):
                        match = INCLUDE.match(line)
                        if not match:
                            continue
                        included = match.group(1)
                        if included.startswith("."):
                            # Relative to the including file: name the folder it lands in.
                            landed = os.path.normpath(os.path.join(os.path.relpath(directory, root), included))
                            target = landed.split(os.sep, 1)[0]
                        elif "/" in included:
                            target = included.split("/", 1)[0]
                        else:
                            continue
                        why = verdict(folder, target, layers)
                        if why:
                            relative = os.path.relpath(path, root)
                            found.append(f'{relative}:{number}: includes "{included}": {why}')
    return checked, found


def main(arguments):
    root = arguments[1] if len(arguments) > 1 else os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
    if not os.path.isdir(root):
        print(f"include order: {root}: not a folder", file=sys.stderr)
        return 2
    edge = inconsistent_sibling_edge(layer_of())
    if edge:
        print(f"include order: the sibling edge {edge[0]}/ -> {edge[1]}/ must point to a folder listed "
              "before its own in the same layer", file=sys.stderr)
        return 2
    checked, found = violations(root)
    if checked == 0:
        # Pointed at the wrong folder: a pass over nothing would hide every violation.
        print(f"include order: {root}: no source files in the layered folders", file=sys.stderr)
        return 2
    for message in found:
        print(message, file=sys.stderr)
    if found:
        print(f"include order: {len(found)} include(s) from a folder not below their own", file=sys.stderr)
        return 1
    print(f"include order: {checked} files, every include from below")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
