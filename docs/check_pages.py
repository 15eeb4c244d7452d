#!/usr/bin/env python3
"""check_pages.py FACTS FOLDER: compares the pages of section 5 with what the code has.

FACTS is a program that prints lines "PAGE row COLUMNS" and "PAGE text TEXT". Each row of a page's
tables must begin like one of its facts and each fact must have its row or text, so that neither a
page nor a fact is forgotten.
"""
import pathlib
import re
import subprocess
import sys


def plain(line):
    """A line of a page as it is read, requests left as they are."""
    return re.sub(r"\\f[RIBP]|\\fR", "", line).replace("\\-", "-")


def table_rows(lines):
    """The rows of all tables but their headings."""
    rows, state = [], "text"
    for line in lines:
        if line == ".TS":
            state = "format"
        elif line == ".TE":
            state = "text"
        elif state == "format" and line.endswith("."):
            state = "heading"
        elif state == "heading":
            state = "rows"
        elif state == "rows":
            rows.append(line)
    return rows


def begins(row, columns):
    return row.startswith(columns) and not row[len(columns):len(columns) + 1].isdigit()


def check(page, facts):
    lines = [plain(line) for line in page.read_text().splitlines()]
    rows, text = table_rows(lines), "\n".join(lines)
    expected = [columns for kind, columns in facts if kind == "row"]
    for row in rows:
        if not any(begins(row, columns) for columns in expected):
            yield f"{page}: not so in the code: {row!r}"
    for kind, fact in facts:
        there = any(begins(row, fact) for row in rows) if kind == "row" else fact in text
        if not there:
            yield f"{page}: missing: {fact!r}"


def main():
    program, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    facts = {}
    for line in subprocess.run([program], check=True, capture_output=True, text=True).stdout.splitlines():
        page, kind, fact = line.split(" ", 2)
        facts.setdefault(page, []).append((kind, fact))
    pages = [page for page in sorted(folder.glob("*.5")) if not page.read_text().startswith(".so ")]
    faults = [fault for page in pages for fault in check(page, facts.get(page.name, []))]
    faults += [f"{folder / name}: no such page" for name in facts.keys() - {p.name for p in pages}]
    count = sum(map(len, facts.values()))
    print("\n".join(faults) or f"pages: {count} facts stand in {len(pages)} pages of section 5")
    return 1 if faults or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
