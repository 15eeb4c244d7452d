#!/usr/bin/env python3
"""check_guide.py [--write]: whether the programs in docs/guide.md are those of examples/guide.

Each is there once, under its name, as it is compiled. With --write the page is made so.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs/guide.md"
PROGRAM = re.compile(r"<!-- (examples/guide/\w+\.c) -->\n```c\n(.*?)^```$", re.DOTALL | re.MULTILINE)


def main():
    text = PAGE.read_text()
    if "--write" in sys.argv[1:]:
        text = PROGRAM.sub(
            lambda m: f"<!-- {m[1]} -->\n```c\n{(ROOT / m[1]).read_text()}```", text)
        PAGE.write_text(text)
    shown = [m[1] for m in PROGRAM.finditer(text)]
    there = sorted(str(path.relative_to(ROOT)) for path in (ROOT / "examples/guide").glob("*.c"))
    faults = [f"docs/guide.md: not the text of {m[1]}" for m in PROGRAM.finditer(text)
              if not (ROOT / m[1]).exists() or m[2] != (ROOT / m[1]).read_text()]
    if sorted(shown) != there:
        faults.append(f"docs/guide.md shows {sorted(shown)}, the folder has {there}")
    if text.count("```c\n") != len(shown):
        faults.append("docs/guide.md: a program without its name")
    print("\n".join(faults) or f"guide: {len(shown)} programs are shown as they are compiled")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
