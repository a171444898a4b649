"""What check_layers.py must see and what it must let pass."""

import pathlib
import tempfile
import unittest

import check_layers

CASES = {
    "includes of the own and of a lower folder pass": (
        {
            "Sources/Platform/Core/URL.h": "#pragma once\n#include <string>\n",
            "Sources/PanoveerTool/main.cpp": '#include "Platform/Core/URL.h"\n#include "PanoveerTool/Run.h"\n',
            "Sources/PanoveerTool/Run.h": "#pragma once\n",
        },
        [],
    ),
    "an include upwards": (
        {
            "Sources/Platform/Core/URL.cpp": '#include "Panoveer/Model/Records/VRTransform.h"\n',
            "Sources/Panoveer/Model/Records/VRTransform.h": "#pragma once\n",
        },
        ["Sources/Platform/Core/URL.cpp:1: Platform/Core must not know Panoveer/Model/Records"],
    ),
    "an include sideways": (
        {
            "Sources/Platform/GPU/Texture.h": '#pragma once\n\n  #  include "Platform/Media/PixelBuffer.h"\n',
            "Sources/Platform/Media/PixelBuffer.h": "#pragma once\n",
        },
        ["Sources/Platform/GPU/Texture.h:3: Platform/GPU must not know Platform/Media"],
    ),
    "a library outside its folders": (
        {
            "Sources/PanoveerTool/a.cpp": "#include <libavformat/avformat.h>\n#include <vulkan/vulkan.h>\n",
            "Sources/Panoveer/Model/Records/b.cpp": "#include <QString>\n#include <queue>\n",
            "Sources/Platform/Media/c.cpp": "#include <libswscale/swscale.h>\n",
            "Tests/Platform/Media/d.cpp": "#include <libavutil/frame.h>\n",
        },
        ["Records/b.cpp:1: Qt is known", "a.cpp:1: FFmpeg is known", "a.cpp:2: Vulkan is known"],
    ),
    "a private header used from another folder, through a second one": (
        {
            "Sources/FFmpegBridge/Common.h": "#pragma once\n#include <libavutil/frame.h>\n",
            "Sources/FFmpegBridge/Reader.h": '#pragma once\n#include "FFmpegBridge/Common.h"\n',
            "Sources/FFmpegBridge/Reader.cpp": '#include "FFmpegBridge/Reader.h"\n',
            "Sources/Panoveer/Services/Intake/R.cpp": '#include "FFmpegBridge/Reader.h"\n',
        },
        ["Intake/R.cpp:1: FFmpegBridge/Reader.h shows a library that is private to FFmpegBridge"],
    ),
    "a misspelt path, a folder without a layer, a header without its guard, a file too long": (
        {
            "Sources/PanoveerTool/main.cpp": '#include "Run.h"\n',
            "Sources/Elsewhere/a.cpp": "",
            "Tests/Support/Long.h": "// a comment first\n#pragma once\n" + "\n" * 699,
        },
        [
            "Sources/Elsewhere/a.cpp:1: this folder stands in no layer",
            "Sources/PanoveerTool/main.cpp:1: no file Sources/Run.h",
            "Tests/Support/Long.h:1: a header starts with",
            "Tests/Support/Long.h:701: more than 700 lines",
        ],
    ),
}


class CheckLayers(unittest.TestCase):
    def test_cases(self):
        for name, (files, expected) in CASES.items():
            with self.subTest(name), tempfile.TemporaryDirectory() as folder:
                for path, text in files.items():
                    file = pathlib.Path(folder, path)
                    file.parent.mkdir(parents=True, exist_ok=True)
                    file.write_text(text, encoding="utf-8")
                found = list(check_layers.check(pathlib.Path(folder)))
                self.assertEqual(len(found), len(expected), found)
                for line, wanted in zip(found, expected):
                    self.assertIn(wanted, line)


if __name__ == "__main__":
    unittest.main()
