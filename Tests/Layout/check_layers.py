#!/usr/bin/env python3
"""Proves that the sources keep to the layers of ARCHITECTURE.md.

check_layers.py [ROOT]: prints one line for each breach, FILE:LINE: WHAT IS WRONG, and ends with 1 if there is any.
"""

import pathlib
import re
import sys

# Every folder with code, and the height at which it stands. A file includes its own folder and lower ones.
LAYERS = {
    "BundleLauncher": 0,
    "Platform/Core": 0,
    "Platform/Media": 1,
    "Platform/GPU": 1,
    "FFmpegBridge": 2,
    "Panoveer/Model/Records": 3,
    "Panoveer/Rendering/Projection": 4,
    "Panoveer/Services/Diagnostics": 5,
    "Panoveer/Services/Intake": 5,
    "Panoveer/Services/Export": 6,
    "Panoveer/Services/Live": 7,
    "Panoveer/Views": 8,
    "PanoveerTool": 8,
    "WarpMeshMaker": 8,
}

# Outside libraries that only some folders may know, so that each can be replaced in one place.
LIBRARIES = [
    ("FFmpeg", r"lib(av\w+|sw\w+|postproc)/", ["FFmpegBridge", "Platform/Media"]),
    ("Vulkan", r"(vulkan|shaderc)/|vk_mem_alloc", ["Platform/GPU", "Panoveer/Rendering"]),
    ("Qt", r"Q[A-Z]\w+$|Qt\w*/", ["Panoveer/Views"]),
]

# Headers that take the compiler seconds or that nobody above should see. A header of ours that includes one is private
# to its folder.
HEAVY = re.compile(r"lib(av|sw)\w+/|vulkan/|vk_mem_alloc|shaderc/|nlohmann/json\.hpp|spdlog/")
# Headers that show such a library on purpose, because the folders above need it through them.
SHOWN_ON_PURPOSE = set()

MAXIMUM_LINES = 700
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')


def folder_of(path):
    """The layer's folder of a path relative to Sources, or None."""
    return max((folder for folder in LAYERS if path.startswith(folder + "/")), key=len, default=None)


class Source:
    def __init__(self, root, path):
        self.name = path.relative_to(root).as_posix()
        self.lines = path.read_text(encoding="utf-8").splitlines()
        self.is_header = path.suffix == ".h"
        self.inside = self.name.removeprefix("Sources/") if self.name.startswith("Sources/") else None
        self.includes = [
            (number, match[1] == '"', match[2])
            for number, line in enumerate(self.lines, 1)
            if (match := INCLUDE.match(line))
        ]


def private_headers(sources):
    """Headers that show a heavy one, directly or through each other, by their path below Sources."""
    headers = {source.inside: source for source in sources if source.is_header and source.inside}
    private = set()
    grew = True
    while grew:
        grew = False
        for name, header in headers.items():
            if name in private or name in SHOWN_ON_PURPOSE:
                continue
            if any(HEAVY.match(path) or path in private for _, _, path in header.includes):
                private.add(name)
                grew = True
    return private


def breaches_of_form(source):
    if source.is_header and (not source.lines or source.lines[0] != "#pragma once"):
        yield 1, "a header starts with #pragma once"
    if len(source.lines) > MAXIMUM_LINES:
        yield len(source.lines), f"more than {MAXIMUM_LINES} lines: this file holds more than one concept"


def breaches_of_layers(source, known, private):
    own = folder_of(source.inside)
    if own is None:
        yield 1, "this folder stands in no layer: give it a place in LAYERS of Tests/Layout/check_layers.py"
        return
    for number, quoted, path in source.includes:
        for library, pattern, homes in LIBRARIES:
            if not quoted and re.match(pattern, path) and not any(own.startswith(home) for home in homes):
                yield number, f"{library} is known only to {' and '.join(homes)}"
        if not quoted:
            continue
        if path not in known:
            yield number, f'no file Sources/{path}: "…" names a file by its path below Sources, <…> an outside one'
            continue
        other = folder_of(path)
        if other is None or other == own:
            continue
        if LAYERS[other] >= LAYERS[own]:
            yield number, f"{own} must not know {other}, which does not stand below it"
        if path in private:
            yield number, f"{path} shows a library that is private to {other}"


def check(root):
    paths = [path for top in ("Sources", "Tests", "Benchmarks") for path in sorted((root / top).rglob("*"))]
    sources = [Source(root, path) for path in paths if path.suffix in (".h", ".cpp") and path.is_file()]
    known = {source.inside for source in sources if source.inside}
    private = private_headers(sources)
    for source in sources:
        found = list(breaches_of_form(source))
        if source.inside:
            found += breaches_of_layers(source, known, private)
        for number, what in found:
            yield f"{source.name}:{number}: {what}"


def main():
    root = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parents[2]
    breaches = list(check(root))
    print("\n".join(breaches) if breaches else "every include points downwards")
    return 1 if breaches else 0


if __name__ == "__main__":
    sys.exit(main())
