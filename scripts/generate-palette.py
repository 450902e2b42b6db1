#!/usr/bin/env python3
"""Prints the CAD colour index palette as the C++ table compiled into support/LumoEng.cpp.

Usage: generate-palette.py [path/to/cad-colour-index.csv]
(default: the shared data folder beside the repository, as the tests use)

The CSV (columns index,r,g,b) is not shipped with the library, so the table is pasted into the
source; run this again and replace the block between the clang-format markers when the palette
changes. Five entries per line keep the lines short and each hue's ten shades on two lines.
"""

import csv
import os
import sys

PER_LINE = 5


def read_palette(path):
    with open(path, newline="") as source:
        rows = [(int(r["index"]), int(r["r"]), int(r["g"]), int(r["b"])) for r in csv.DictReader(source)]
    indexes = [row[0] for row in rows]
    if indexes != list(range(256)):
        sys.exit(f"{path}: expected indexes 0..255 in order")
    for index, *components in rows:
        if any(not 0 <= c <= 255 for c in components):
            sys.exit(f"{path}: component out of 0..255 at index {index}")
    return [tuple(row[1:]) for row in rows]


def main():
    repo = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    default = os.path.join(repo, "..", "shared", "data", "cad-colour-index.csv")
    path = sys.argv[1] if len(sys.argv) > 1 else default
    palette = read_palette(path)
    print("// clang-format off")
    print("constexpr PaletteColour PALETTE[PALETTE_SIZE] = {")
    for first in range(0, len(palette), PER_LINE):
        entries = " ".join(f"{{{r:3d}, {g:3d}, {b:3d}}}," for r, g, b in palette[first:first + PER_LINE])
        print(f"    {entries}  // {first}")
    print("};")
    print("// clang-format on")


if __name__ == "__main__":
    main()
