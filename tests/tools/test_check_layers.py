#!/usr/bin/env python3
"""Tests of tools/check_layers.py on small source trees built per case."""

import os
import subprocess
import sys
import tempfile
import unittest

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools", "check_layers.py")

# (file, include line, kept to the order?)
CASES = [
    ("engine/TavrineLoop.cpp", '#include "audio/GainAudioSource.h"', True),
    ("engine/TavrineLoop.cpp", '#include "engine/TavrineEngine.h"', True),
    ("audio/Resampler.h", '#include "dsp/Meridex.h"', True),
    ("gui/player/Editor.cpp", '#include "shell/TavrinePluginProcessor.h"', True),
    ("cli/RenderCommand.cpp", '#include "shell/TavrinePluginProcessor.h"', True),
    ("plugin/Entry.cpp", '#include "gui/player/TavrinePluginEditor.h"', True),
    ("shell/Settings.cpp", '#include "tests/support/Helper.h"', True),  # not a layer
    ("shell/Settings.cpp", "#include <juce_core/juce_core.h>", True),
    ("shell/Settings.cpp", '#include "Local.h"', True),  # beside the file
    ("shell/TavrinePluginProcessor.cpp", '#include "gui/player/TavrinePluginEditor.h"', False),
    ("engine/TavrineEngine.h", '  #  include "shell/TavrineSettings.h"', False),
    ("controllable/lib/ValueConverters.h", '#include "engine/TavrineEngine.h"', False),
    ("dsp/Meridex.cpp", '#include "controllable/api/Parameter.h"', False),
    ("samples/SamplePool.inl", '#include "engine/TavrineLoop.h"', False),
    ("library/Userbanks.hpp", '#include "shell/State.h"', False),
    ("gui/player/Editor.cpp", '#include "cli/RenderCommand.h"', False),
    ("cli/RenderCommand.cpp", '#include "plugin/Entry.h"', False),
    ("plugin/Entry.cpp", '#include "cli/RenderCommand.h"', False),
]


def run(root):
    result = subprocess.run([sys.executable, SCRIPT, root], capture_output=True, text=True)
    return result.returncode, result.stdout


def tree(files):
    root = tempfile.TemporaryDirectory()
    for path, line in files:
        full = os.path.join(root.name, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with open(full, "a", encoding="utf-8") as out:
            out.write("#pragma once\n" + line + "\n")
    return root


class CheckLayersTest(unittest.TestCase):
    def test_each_include_alone(self):
        for path, line, kept in CASES:
            with self.subTest(path=path, line=line):
                with tree([(path, line)]) as root:
                    code, out = run(root)
                self.assertEqual(code, 0 if kept else 1, out)
                if not kept:
                    # The offending file and line, and the folder it climbs to.
                    self.assertIn(path + ":2: ", out)
                    self.assertIn('"' + line.split('"')[1] + '"', out)

    def test_every_offence_of_a_tree_is_reported_once(self):
        with tree([(p, l) for p, l, _ in CASES]) as root:
            code, out = run(root)
        self.assertEqual(code, 1)
        offences = sum(1 for _, _, kept in CASES if not kept)
        self.assertIn("%d include(s) break the layer order" % offences, out)
        self.assertEqual(len([l for l in out.splitlines() if " is above layer " in l]), offences)

    def test_files_other_than_sources_are_not_read(self):
        with tree([("shell/notes.txt", '#include "gui/x.h"'), ("shell/CMakeLists.txt", '#include "gui/x.h"')]) as root:
            code, out = run(root)
        self.assertEqual(code, 0, out)


if __name__ == "__main__":
    unittest.main()
