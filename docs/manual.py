#!/usr/bin/env python3
"""manual.py XML VERSION OUT: makes the manual pages of section 3 from Doxygen's XML of the headers.

One page for each group of a header, and for each function a page that leads there.
"""
import datetime
import os
import pathlib
import re
import sys
import textwrap
import xml.etree.ElementTree as ElementTree

WIDTH = 78
LIBRARIES = {"reader.h": "korx_reader"}


def escape(text):
    """Text as roff prints it; what begins like an option or a number keeps its minus."""
    text = text.replace("\\", "\\e").replace("^", "\\(ha").replace("~", "\\(ti")
    return re.sub(r"(?<![\w-])-(?=[\w])", r"\\-", text)


def line(text):
    """One line of input that is no request, whatever it begins with."""
    return "\\&" + text if text[:1] in (".", "'") else text


def filled(text):
    return "\n".join(map(line, textwrap.wrap(" ".join(text.split()), WIDTH, break_long_words=False,
                                             break_on_hyphens=False)))


def quoted(text):
    return '"' + text.replace('"', "\\(dq") + '"'


class Prose:
    """The roff of a description: paragraphs, lists and verbatim blocks."""

    def __init__(self, *elements):
        self.blocks = []
        self.pending = ""
        for element in elements:
            if element is not None:
                for para in element:
                    self.paragraph(para)

    def end_paragraph(self):
        if self.pending.strip():
            self.blocks.append(filled(escape(self.pending)))
        self.pending = ""

    def paragraph(self, para):
        self.pending += para.text or ""
        for child in para:
            if child.tag == "verbatim":
                self.end_paragraph()
                rows = [line(escape(row)) for row in textwrap.dedent(child.text).rstrip().split("\n")]
                self.blocks.append("\n".join([".RS 4", ".EX", *rows, ".EE", ".RE"]))
            elif child.tag == "itemizedlist":
                self.end_paragraph()
                for item in child:
                    self.blocks.append(".IP \\(bu 2\n" + Prose(item).text())
            elif child.tag not in ("parameterlist", "simplesect"):
                self.pending += "".join(child.itertext())
            self.pending += child.tail or ""
        self.end_paragraph()

    def text(self):
        """All of it; a block that brings its own request needs no paragraph before it."""
        out = ""
        for block in self.blocks:
            own = block.startswith((".IP", ".RS"))
            out += block if not out else ("\n" if own else "\n.P\n") + block
        return out


def prose(member, *more):
    return Prose(member.find("briefdescription"), member.find("detaileddescription"), *more).text()


def plain(element):
    return " ".join("".join(element.itertext()).split()) if element is not None else ""


class Function:
    def __init__(self, member):
        self.member = member
        self.name = plain(member.find("name"))
        self.result = plain(member.find("type")).replace("* ", "*")
        self.brief = prose(member)
        self.parameters = [self.split(p) for p in member.findall("param")]

    @staticmethod
    def split(param):
        """What stands before the name, the name, and what stands behind it."""
        kind, name = plain(param.find("type")), plain(param.find("declname"))
        pointer, _, arguments = kind.partition("(*)")
        if arguments:
            return f"{pointer} (*", name, ")" + arguments
        return kind + ("" if kind.endswith("*") or not name else " "), name, ""

    def prototype(self):
        """In bold, with the names of arguments in italics; continued rows are indented."""
        start = self.result + ("" if self.result.endswith("*") else " ") + self.name + "("
        rows, row, length = [], [start], len(start)
        for i, (before, name, behind) in enumerate(self.parameters or [("void", "", "")]):
            is_last = i + 1 >= len(self.parameters)
            behind += ");" if is_last else ", "
            size = len(before + name + behind)
            if length + size > WIDTH and i:
                rows.append(row)
                row, length = [" " * 8], 8
            row[-1] += before
            row += [name, behind] if name else []
            if not name:
                row[-1] += behind
            length += size
        return "\n".join(map(self.request, [*rows, row]))

    @staticmethod
    def request(row):
        row[-1] = row[-1].rstrip()
        return ".BI " + " ".join(quoted(escape(part)) for part in row)

    def text(self):
        out = [f".SS {self.name}", self.brief]
        for item in self.member.iter("parameteritem"):
            name = item.find("parameternamelist/parametername")
            flow = {"out": ", out", "inout": ", in and out"}.get(name.get("direction"), "")
            out += [".TP", f".IR {quoted(name.text)} {quoted(flow)}" if flow else f".I {name.text}",
                    Prose(item.find("parameterdescription")).text()]
        for result in self.member.iter("simplesect"):
            if result.get("kind") == "return":
                out += [".TP", ".B Returns", Prose(result).text()]
        return "\n".join(out)


class Group:
    """One page."""

    def __init__(self, xml, name):
        self.xml = xml
        self.group = self.load(name)
        self.name = plain(self.group.find("compoundname"))
        self.title = plain(self.group.find("title"))
        members = list(self.group.iter("memberdef"))
        self.functions = [Function(m) for m in members if m.get("kind") == "function"]
        self.others = [m for m in members if m.get("kind") != "function"]
        location = next(self.group.iter("location"))
        self.header = pathlib.PurePath(location.get("file")).name

    def load(self, name):
        return ElementTree.parse(self.xml / f"{name}.xml").getroot().find("compounddef")

    def names(self):
        return [self.name] + [f.name for f in self.functions]

    def structure(self, inner):
        struct = self.load(inner.get("refid"))
        name = plain(inner)
        if "::" in name or "@" in name:  # shown with the member that it is the type of
            return []
        return [f".SS struct {name}", prose(struct)] + self.fields(struct)

    def fields(self, struct, prefix=""):
        out = []
        for member in struct.iter("memberdef"):
            kind, name = plain(member.find("type")), plain(member.find("name"))
            size = plain(member.find("argsstring"))
            inner = member.find("type/ref")
            if "@" in kind and inner is not None:
                out += [".TP", f".B {prefix}{name}{size}", prose(member) or "\\&"]
                out += self.fields(self.load(inner.get("refid")), f"{prefix}{name}[].")
                continue
            gap = "" if kind.endswith("*") else " "
            out += [".TP", f".BI {quoted(escape(kind + gap))} {quoted(prefix + name)} {quoted(size)}"
                    if size else f".BI {quoted(escape(kind + gap))} {quoted(prefix + name)}",
                    prose(member)]
        return out

    def enumeration(self, member):
        name = plain(member.find("name"))
        out = [f".SS enum {name}" if name and "@" not in name else ".SS \"Numbers\"", prose(member)]
        for value in member.findall("enumvalue"):
            start = plain(value.find("initializer"))
            out += [".TP", f".BR {plain(value.find('name'))} {quoted(' ' + escape(start))}",
                    prose(value)]
        return out

    def macros(self, members):
        out = []
        for member in members:
            value = plain(member.find("initializer"))
            shown = re.fullmatch(r"\w+", value)
            name = plain(member.find("name"))
            out += [".TP", f".BR {name} {quoted(' = ' + value)}" if shown else f".B {name}",
                    prose(member)]
        return out

    def variable(self, member):
        kind = plain(member.find("type")).removeprefix("KORX_API ").removeprefix("extern ")
        text = f"{kind}{'' if kind.endswith('*') else ' '}"
        name = plain(member.find("name")) + plain(member.find("argsstring"))
        return [".TP", f".BI {quoted(escape(text))} {quoted(name)}", prose(member)]

    def of_kind(self, kind):
        return [m for m in self.others if m.get("kind") == kind]

    def types(self):
        out = []
        for inner in self.group.findall("innerclass"):
            out += self.structure(inner)
        for member in self.of_kind("enum"):
            out += self.enumeration(member)
        for member in self.of_kind("typedef"):
            if prose(member):
                out += [f".SS {plain(member.find('name'))}", ".nf",
                        line(escape(plain(member.find("definition")))) + ";", ".fi", ".P",
                        prose(member)]
                out += Function(member).text().split("\n")[2:] if member.find("param") else []
        return out

    def sections(self):
        constants = self.macros(self.of_kind("define"))
        variables = [row for m in self.of_kind("variable") for row in self.variable(m)]
        functions = [f.text() for f in self.functions]
        notes = list(self.group.iter("description"))
        yield "DESCRIPTION", [prose(self.group, *notes)]
        for title, rows in (("FUNCTIONS", functions), ("TYPES", self.types()),
                            ("CONSTANTS", constants), ("VARIABLES", variables)):
            if rows:
                yield title, rows

    def related(self, groups):
        """The groups of the same header, and the conventions of all."""
        return [g.name for g in groups if g.header in (self.header, "common.h")]

    def page(self, version, date, others):
        library = LIBRARIES.get(self.header, "korx_basic")
        synopsis = [".nf", f".B #include <korx/{self.header}>"]
        for function in self.functions:
            synopsis += [".P", function.prototype()]
        out = [f".TH {self.name.upper()} 3 {date} {quoted(f'lib{library} {version}')} "
               + quoted("Library Functions"),
               ".SH NAME", filled(", ".join(self.names()) + " \\- " + escape(self.title)),
               ".SH LIBRARY", f"lib{library}, \\fB\\-l{library}\\fP",
               ".SH SYNOPSIS", *synopsis, ".fi"]
        for title, rows in self.sections():
            out += [f".SH {title}", *rows]
        see = [f".BR {name} (3)" for name in others if name != self.name]
        out += [".SH SEE ALSO", ",\n".join(see)]
        return "\n".join(row for row in out if row) + "\n"


def main():
    xml, version, out = pathlib.Path(sys.argv[1]), sys.argv[2], pathlib.Path(sys.argv[3])
    now = int(os.environ.get("SOURCE_DATE_EPOCH", datetime.datetime.now().timestamp()))
    date = datetime.datetime.fromtimestamp(now, datetime.timezone.utc).date().isoformat()
    groups = [Group(xml, path.stem) for path in sorted(xml.glob("group__*.xml"))]
    out.mkdir(parents=True, exist_ok=True)
    for old in out.glob("*.3"):
        old.unlink()
    for group in groups:
        (out / f"{group.name}.3").write_text(group.page(version, date, group.related(groups)))
        for function in group.functions:
            (out / f"{function.name}.3").write_text(f".so man3/{group.name}.3\n")
    print(f"manual: {len(groups)} pages, {sum(len(g.functions) for g in groups)} functions")


if __name__ == "__main__":
    main()
