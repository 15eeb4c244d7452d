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
HEADERS = pathlib.Path(__file__).resolve().parent.parent / "include/korx"
LIBRARIES = {"reader.h": "korx_reader"}
# The pages of section 5 that a header's groups lead to.
FORMATS = {"ini.h": "korx_profile", "log.h": "korx_log", "plog.h": "korx_log", "reader.h": "korx_log"}


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


def item(head, *elements):
    """An entry of a list; its further paragraphs stay in it."""
    text = Prose(*elements).text().replace("\n.P\n", "\n.IP\n")
    return [".TP", head, text or "\\&"]


def arguments(member):
    """What each argument means, and the result."""
    out = []
    for parameter in member.iter("parameteritem"):
        name = parameter.find("parameternamelist/parametername")
        flow = {"out": ", out", "inout": ", in and out"}.get(name.get("direction"), "")
        out += item(f".IR {quoted(name.text)} {quoted(flow)}" if flow else f".I {name.text}",
                    parameter.find("parameterdescription"))
    for result in member.iter("simplesect"):
        if result.get("kind") == "return":
            out += item(".B Returns", result)
    return out


def described(member):
    return member.find("briefdescription"), member.find("detaileddescription")


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
        return "\n".join([f".SS {self.name}", self.brief, *arguments(self.member)])


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
        self.nameless = self.nameless_structures(self.header)

    @staticmethod
    def nameless_structures(header):
        """First and last line, and the member that they are the type of: to Doxygen, what is in one
        is a member of the structure around it."""
        text = (HEADERS / header).read_text()
        return [(text.count("\n", 0, m.start()) + 1, text.count("\n", 0, m.end()) + 1, m[1])
                for m in re.finditer(r"struct \{[^{}]*\} (\w+)\[", text)]

    def place(self, member):
        """Where a member is to stand, and by what name: those of nameless ones behind these."""
        line_of = int(member.find("location").get("line"))
        name = plain(member.find("name"))
        for first, last, owner in self.nameless:
            if first <= line_of <= last:
                is_owner = name == owner
                return (first, not is_owner, line_of), name if is_owner else f"{owner}[].{name}"
        return (line_of, False, line_of), name

    def load(self, name):
        return ElementTree.parse(self.xml / f"{name}.xml").getroot().find("compounddef")

    def names(self):
        return [self.name] + [f.name for f in self.functions]

    def structure(self, inner):
        struct = self.load(inner.get("refid"))
        out = [f".SS struct {plain(inner)}", prose(struct)]
        for member in sorted(struct.iter("memberdef"), key=lambda m: self.place(m)[0]):
            kind = plain(member.find("type"))
            kind = "struct" if "@" in kind else kind
            name = self.place(member)[1] + plain(member.find("argsstring"))
            gap = "" if kind.endswith("*") else " "
            out += item(f".BI {quoted(escape(kind + gap))} {quoted(name)}", *described(member))
        return out

    def enumeration(self, member):
        """Under its name, or what the names of its values have in common."""
        name, values = plain(member.find("name")), member.findall("enumvalue")
        common = os.path.commonprefix([plain(value.find("name")) for value in values])
        if len(values) > 1:
            common = common[:common.rfind("_") + 1] + "..."
        out = [f".SS enum {name}" if name and "@" not in name else f".SS {common}", prose(member)]
        for value in values:
            start = quoted(" " + escape(plain(value.find("initializer"))))
            out += item(f".BR {plain(value.find('name'))} {start}", *described(value))
        return out

    @staticmethod
    def macro(member):
        value, name = plain(member.find("initializer")), plain(member.find("name"))
        is_number = re.fullmatch(r"\w+", value)
        return item(f".BR {name} {quoted(' = ' + value)}" if is_number else f".B {name}",
                    *described(member))

    @staticmethod
    def variable(member):
        kind = plain(member.find("type")).removeprefix("KORX_API ").removeprefix("extern ")
        gap = "" if kind.endswith("*") else " "
        name = plain(member.find("name")) + plain(member.find("argsstring"))
        return item(f".BI {quoted(escape(kind + gap))} {quoted(name)}", *described(member))

    @staticmethod
    def alias(member):
        if not prose(member):
            return []
        text = plain(member.find("definition")) + ";"
        text = re.sub(r" ?\(\* (\w+)\) \(", r" (*\1)(", text).replace(",...", ", ...")
        return [f".SS {plain(member.find('name'))}", f".B {quoted(escape(text))}", ".P",
                prose(member), *arguments(member)]

    def of_kind(self, kind):
        return [m for m in self.others if m.get("kind") == kind]

    def rows(self, kind, make):
        return [row for member in self.of_kind(kind) for row in make(member)]

    def types(self):
        structures = [row for inner in self.group.findall("innerclass")
                      for row in self.structure(inner)]
        return (structures + self.rows("enum", self.enumeration)
                + self.rows("typedef", self.alias))

    def sections(self):
        yield "DESCRIPTION", [prose(self.group)]
        for part in self.group.findall("sectiondef"):
            if part.find("description") is not None:
                yield None, [f".SS {plain(part.find('header'))}", Prose(part.find("description")).text()]
        yield "FUNCTIONS", [function.text() for function in self.functions]
        yield "TYPES", self.types()
        yield "CONSTANTS", self.rows("define", self.macro)
        yield "VARIABLES", self.rows("variable", self.variable)

    def related(self, groups):
        """The groups of the same header, and the conventions of all."""
        near = (self.header, "common.h")
        return [g.name for g in groups if g.header in near or self.header == "common.h"]

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
            out += ([f".SH {title}"] if title and rows else []) + rows
        see = [f".BR {name} (3)" for name in others if name != self.name]
        see += [f".BR {FORMATS[self.header]} (5)"] if self.header in FORMATS else []
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
