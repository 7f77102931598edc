#!/usr/bin/env python3
"""Fails when a source includes a header of a layer above its own.

Every `#include "folder/..."` of the layer folders is read against LAYERS: a
file may include its own layer and the layers before it in the list, nothing
after. The front ends (the command line and the plug-in glue) sit above all
layers and may include every layer, but never each other. The same order is
written in the top CMakeLists.txt, and each layer's library links only the
layers before it; this check catches what linking cannot: a header-only
include, or an inline function, of a higher layer.

Usage: check_layers.py <source root>
Exit status 0 when every include keeps to the order, 1 otherwise, with one
line per offending include: file:line: "included" (layer) is above layer.
"""

import os
import re
import sys

# Lowest first. A layer builds only on the layers before it.
LAYERS = [
    "dsp",           # stretch library, plain C++
    "controllable",  # parameter framework
    "audio",         # audio graph blocks
    "samples",       # sample pool, preparation, cache
    "engine",        # player engine
    "library",       # database of soundbanks, tree, userbanks
    "shell",         # processor, player instance, state, settings
    "gui",           # player and library user interface
]

# Above every layer; each may include any layer but no other front end.
FRONT_ENDS = ["cli", "plugin"]

SOURCE_SUFFIXES = (".h", ".hpp", ".cpp", ".cc", ".inl")
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"/]+)/')


# Front ends share one rank above the layers, so that none may include
# another.
def rank(folder):
    if folder in LAYERS:
        return LAYERS.index(folder)
    if folder in FRONT_ENDS:
        return len(LAYERS)
    return None


def allowed(own, included):
    if included == own:
        return True
    included_rank = rank(included)
    if included_rank is None:
        # Not one of ours (a system or third-party folder): not our concern.
        return True
    return included_rank < rank(own)


def check(root):
    problems = []
    for top in LAYERS + FRONT_ENDS:
        folder = os.path.join(root, top)
        for directory, subdirs, files in os.walk(folder):
            subdirs.sort()
            for name in sorted(files):
                if not name.endswith(SOURCE_SUFFIXES):
                    continue
                path = os.path.join(directory, name)
                with open(path, encoding="utf-8", errors="replace") as source:
                    for number, line in enumerate(source, start=1):
                        match = INCLUDE.match(line)
                        if match and not allowed(top, match.group(1)):
                            problems.append('%s:%d: "%s" (%s) is above layer %s' % (
                                os.path.relpath(path, root), number,
                                line.split('"')[1], match.group(1), top))
    return problems


def main(argv):
    if len(argv) != 2 or not os.path.isdir(argv[1]):
        sys.stderr.write("usage: check_layers.py <source root>\n")
        return 2
    problems = check(argv[1])
    for problem in problems:
        print(problem)
    if problems:
        print("%d include(s) break the layer order %s (front ends %s on top)"
              % (len(problems), " < ".join(LAYERS), ", ".join(FRONT_ENDS)))
        return 1
    print("layer order kept: %s (front ends %s on top)" % (" < ".join(LAYERS), ", ".join(FRONT_ENDS)))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
