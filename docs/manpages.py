#!/usr/bin/env python3
"""Makes the manual pages of sections 3 and 7 of what Doxygen has read out of the headers.

A page of section 3 is a service (a Doxygen group) with all its calls; every call and variable has a page of its own name
that leads there. libmarl(7) is the overview, the conventions and the list of services.

usage: docs/manpages.py XML OUT VERSION DATE [PROGRAM]...

OUT gets man3/, man7/ and examples.c, the examples of all services as one file to be compiled. The programs are worked
examples, to which the pages of the calls that they make refer.
"""
import pathlib
import re
import sys
import textwrap
import xml.etree.ElementTree as ElementTree

xml, out, version, date = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3], sys.argv[4]
programs = {pathlib.Path(name).name: pathlib.Path(name).read_text() for name in sys.argv[5:]}
faults = []


def root_of(name):
    return ElementTree.parse(xml / f"{name}.xml").getroot().find("compounddef")


services = {compound.get("refid"): root_of(compound.get("refid"))
            for compound in ElementTree.parse(xml / "index.xml").getroot().findall("compound[@kind='group']")}
page_of = {refid: f"libmarl_{service.findtext('compoundname')}" for refid, service in services.items()}


# ---- Text ----------------------------------------------------------------------------------------------------------------

ESCAPES = {"\\": r"\e", "\u00a0": r"\ ", "^": r"\(ha", "~": r"\(ti", "`": r"\(ga"}


def escape(text, literal=False):
    """Text as roff takes it; in literal text every dash and quote is the one that is typed."""
    text = "".join(ESCAPES.get(character, character) for character in text)
    return text.replace("-", r"\-").replace("'", r"\(aq") if literal else text


def code(text):
    """Paths are slanted, names bold, and texts of messages in quotation marks."""
    if re.fullmatch(r"/\S+", text):
        return rf"\fI{escape(text, True)}\fR"
    if re.fullmatch(r"[\w.-]+|<[\w./]+>", text):
        return rf"\fB{escape(text, True)}\fR"
    return f'"{escape(text, True)}"'


def inline(node):
    """What stands in one line of text."""
    inner = "".join(node.itertext())
    if node.tag == "ref":
        name = inner.removesuffix("()")
        return (rf"\fB{escape(name, True)}\fR" + "()" * inner.endswith("()")) if re.fullmatch(r"\w+", name) else escape(inner)
    if node.tag == "computeroutput":
        return code(inner)
    if node.tag in ("bold", "emphasis"):
        return rf"\fI{escape(inner)}\fR"
    if node.tag in ("ndash", "mdash", "nonbreakablespace", "linebreak"):
        return " "
    if node.tag not in ("ulink", "anchor", "sp"):
        faults.append(f"unknown markup: {node.tag}")
    return escape(inner or " " * (node.tag == "sp"))


def plain(text):
    """Text between markup. A call that is named there and is no link does not exist."""
    faults.extend(f"no such call: {name}" for name in re.findall(r"\b\w+\(\)", text or ""))
    return escape(re.sub(r"\s+", " ", text or ""))


def filled(text):
    lines = textwrap.wrap(text.strip(), 100, break_long_words=False, break_on_hyphens=False)
    return [r"\&" + line if line[0] in ".'" else line for line in lines]


# ---- Blocks --------------------------------------------------------------------------------------------------------------


def blocks(node, lead=".PP"):
    """The roff lines of a description; `lead` begins a paragraph. Titled paragraphs are sections of their page, not here."""
    lines, text = [], plain(node.text)

    def flush():
        nonlocal text
        if text.strip():
            lines.extend([lead] * bool(lead and node.tag == "para") + filled(text))
        text = ""

    for child in node:
        if child.tag == "simplesect" and child.get("kind") == "return":
            flush()
            lines.extend([".TP", r"\fIReturns\fR"] + contents(child))
        elif child.tag == "itemizedlist":
            flush()
            lines.extend(items(child, lead == ".PP"))
        elif child.tag in BLOCKS:
            flush()
            lines.extend(BLOCKS[child.tag](child))
        else:
            text += inline(child)
        text += plain(child.tail)
    flush()
    return lines


def contents(node):
    """The paragraphs of an item: the first goes on in its line."""
    lines = []
    for number, paragraph in enumerate(node.findall("para")):
        lines += blocks(paragraph, ".IP" if number else None)
    return lines


def items(node, is_top):
    lines = [line for item in node.findall("listitem") for line in [r".IP \(bu 2"] + contents(item)]
    return lines if is_top else [".RS"] + lines + [".RE"]


def parameters(node):
    lines = []
    for item in node.findall("parameteritem"):
        name = item.findtext("parameternamelist/parametername")
        lines += [".TP", rf"\fI{escape(name, True)}\fR"] + contents(item.find("parameterdescription"))
    return lines


def table(node):
    """A table; one of two columns with a long first one is easier to read as a list."""
    rows = [["\n".join(contents(entry)) for entry in row.findall("entry")] for row in node.findall("row")]
    if len(rows[0]) == 2 and max(len("".join(row.find("entry").itertext())) for row in node.findall("row")) > 32:
        return [line for name, meaning in rows[1:] for line in (".TP", name, meaning)]
    columns = len(rows[0]) - 1
    return [".PP", ".TS", "tab(@);", "lb " * columns + "lbx", "l " * columns + "lx.",
            *("@".join(row[:-1] + [f"T{{\n{row[-1]}\nT}}"]) for row in rows), ".TE"]


def listing(node):
    return [".PP", ".in +4n", ".EX", *(escape(line, True) or r"\&" for line in code_lines(node)), ".EE", ".in"]


def code_lines(node):
    if node.tag == "verbatim":
        return node.text.strip("\n").split("\n")
    return [text_of(line) for line in node.findall("codeline")]


def text_of(node):
    return (node.text or "") + "".join((" " if child.tag == "sp" else text_of(child)) + (child.tail or "") for child in node)


BLOCKS = {"parameterlist": parameters, "table": table, "programlisting": listing, "verbatim": listing,
          "simplesect": lambda node: []}


def description(node):
    """All that is said; the first sentence, which Doxygen has taken out as the brief description, is put back."""
    brief = [line for paragraph in node.findall("briefdescription/para") for line in blocks(paragraph)]
    rest = [line for paragraph in node.findall("detaileddescription/para") for line in blocks(paragraph)]
    return brief + rest[brief != [] and rest[:1] == [".PP"]:]


def titled(node, title):
    """The paragraphs below a title (@par): those without one go on with the one before."""
    lines, here = [], False
    for section in node.iter("simplesect"):
        if section.get("kind") == "par":
            here = section.findtext("title", "") == title or (here and not section.findtext("title"))
            lines += [line for paragraph in section.findall("para") if here for line in blocks(paragraph)]
    return lines


# ---- Declarations --------------------------------------------------------------------------------------------------------


def quoted(pieces):
    return " ".join('"' + piece.replace('"', r"\(dq") + '"' for piece in pieces)


def prototype(member):
    """A declaration as the headers have it, names of arguments slanted, broken behind an argument where it gets long."""
    def joined(text):
        return text if text.endswith("*") else text + " "
    declared = "".join(member.find("type").itertext())
    if member.get("kind") == "variable":
        return [f'.B "extern {escape(joined(declared) + member.findtext("name") + member.findtext("argsstring"), True)};"']
    line = joined(declared) + member.findtext("name") + "("
    lines, pieces, indent, width = [], [line], " " * len(line), len(line)
    arguments = [one for one in member.findall("param") if one.findtext("declname")]
    for number, argument in enumerate(arguments):
        kind = joined("".join(argument.find("type").itertext()))
        name, tail = argument.findtext("declname"), argument.findtext("array", "")
        tail += ", " if number + 1 < len(arguments) else ""
        if width + len(kind + name + tail) > 74 and number:
            lines.append(pieces)
            pieces, width = [indent], len(indent)
        width += len(kind + name + tail)
        if len(pieces) % 2:
            pieces[-1] += kind
        else:
            pieces.append(kind)
        pieces += [name, tail]
    pieces[-1] += (");" if arguments else "void);")
    return [".BI " + quoted(escape(piece, True) for piece in line) for line in lines + [pieces]]


def members(service, kind):
    return service.findall(f"sectiondef/memberdef[@kind='{kind}']")


def named(name, node):
    return [".TP", rf"\fB{escape(name, True)}\fR"] + description(node)[1:]


def records(service):
    """Constants, enumerations and records, with each of their members."""
    lines = []
    for define in members(service, "define"):
        lines += named(f"{define.findtext('name')} = {define.findtext('initializer')}", define)
    for enumeration in members(service, "enum"):
        lines += [f".SS enum {enumeration.findtext('name')}"] + description(enumeration)
        for value in enumeration.findall("enumvalue"):
            lines += named(f"{value.findtext('name')} {value.findtext('initializer')}", value)
    for opaque in members(service, "typedef"):
        lines += [f".SS {opaque.findtext('name')}"] + description(opaque)
    for record in (root_of(inner.get("refid")) for inner in service.findall("innerclass")):
        lines += [f".SS struct {record.findtext('compoundname')}"] + description(record)
        for field in record.findall("sectiondef/memberdef"):
            kind = "".join(field.find("type").itertext()).replace("(*", " (*")
            name = field.findtext("name") + field.findtext("argsstring", "")
            lines += named(kind + " " * (not kind.endswith("*")) + name, field)
    return lines


# ---- Pages ---------------------------------------------------------------------------------------------------------------


def write(section, name, *parts):
    lines = [f"'\\\" t", f'.TH {name} {section} "{date}" "libmarl {version}" "Board support library"', ".ad l", ".nr HY 0", ".hy 0"]
    for title, body in parts:
        lines += [f".SH {title}", *body[body[:1] == [".PP"]:]] if body else []
    (out / f"man{section}" / f"{name}.{section}").write_text("\n".join(lines) + "\n")


def references(service):
    pages = {page_of[refid] for refid in (ref.get("refid").rsplit("_1", 1)[0] for ref in service.iter("ref"))
             if refid in page_of}
    return sorted(pages - {page_of[service.get("id")]})


def worked_examples(names):
    """Which programs make one of these calls."""
    found = [name for name, source in programs.items() if re.search(rf"\b({'|'.join(names)})\b", source)]
    listed = ", ".join(rf"\fI{escape(name, True)}\fR" for name in found)
    return [".PP", rf"Whole programs: {listed}, in \fI/usr/share/doc/libmarl\-dev/examples\fR."] if found else []


def service_page(service):
    page = page_of[service.get("id")]
    calls, variables = members(service, "function"), members(service, "variable")
    names = [member.findtext("name") for member in calls + variables]
    brief = plain("".join(service.find("briefdescription").itertext()).strip().rstrip("."))
    brief = brief[0].lower() + brief[1:]
    synopsis = [".nf", ".B #include <libmarl.h>", ".PP"]
    for member in calls + variables:
        synopsis += prototype(member)
    synopsis += [".fi", ".PP", r"Link with \fB\-lmarl\fR (\fBpkg\-config \-\-cflags \-\-libs libmarl\fR)."]
    text = [line for paragraph in service.findall("detaileddescription/para") for line in blocks(paragraph)]
    which = titled(service.find("detaileddescription"), "Which call")
    body = []
    for member in calls + variables:
        body += [f".SS {escape(member.findtext('name'), True)}{'()' * (member in calls)}"] + description(member)
    overview = service.find("detaileddescription")
    results = titled(overview, "Results") + [".PP", "What each call returns is told with it, above. Where nothing else is said it "
                                             "is 0, a count or a value on success, and negative on failure."]
    general = [".PP", r"How messages reach the console is told in \fBlibmarl\fR(7)."]
    see = ", ".join(rf"\fB{escape(name, True)}\fR(3)" for name in references(service))
    write(3, page, ("NAME", [f"{', '.join(escape(name, True) for name in names)} \\- {brief}"]), ("SYNOPSIS", synopsis),
          ("DESCRIPTION", (text or [".PP"] + contents(service.find("briefdescription"))) + [".SS Which call"] + which), ("CALLS", body), ("CONSTANTS AND RECORDS", records(service)),
          ("RETURN VALUE", results), ("MESSAGES", titled(overview, "Messages") + general),
          ("ATTRIBUTES", titled(overview, "Thread safety")), ("EXAMPLES", titled(overview, "Example") + worked_examples(names)),
          ("SEE ALSO", [see + ", " * bool(see) + r"\fBlibmarl\fR(7)"]))
    for name in names:
        (out / "man3" / f"{name}.3").write_text(f".so man3/{page}.3\n")
    for title in ("Which call", "Thread safety", "Example"):
        if not titled(overview, title):
            faults.append(f"{page}: nothing is said below \"{title}\"")


def chapters(page):
    """The sections of a page: title and text."""
    return [(section.findtext("title").upper(), [line for child in section.findall("para") for line in blocks(child)])
            for section in page.find("detaileddescription").findall("sect1")]


def library_page():
    overview, conventions = root_of("overview"), root_of("conventions")
    told = dict(chapters(overview) + chapters(conventions))
    text = [line for page in (overview, conventions) for child in page.find("detaileddescription").findall("para")
            for line in blocks(child)]
    listed = []
    for service in sorted(services.values(), key=lambda one: one.findtext("compoundname")):
        listed += [".TP", rf"\fB{escape(page_of[service.get('id')], True)}\fR(3)"] + contents(service.find("briefdescription"))
    write(7, "libmarl", ("NAME", [r"libmarl \- board support library of the video device"]),
          ("SYNOPSIS", [".B #include <libmarl.h>", ".PP", r".B cc ... \-lmarl"]), ("DESCRIPTION", text), ("SERVICES", listed),
          *((title, told[title]) for title in ("LINKING", "INITIALISATION", "RESULTS", "MESSAGES")),
          ("ATTRIBUTES", told["THREAD SAFETY"]), ("ENVIRONMENT", told["ENVIRONMENT"]), ("FILES", told["FILES"]),
          ("SEE ALSO", [r"\fBmarl\fR(1), \fBsentrel\fR(8)"]))


def write_examples():
    """The examples of the services, each a function."""
    functions = []
    for service in services.values():
        code = "\n".join("    " + line for section in service.iter("programlisting") for line in code_lines(section))
        functions.append(f"void example_{service.findtext('compoundname')}(void);\n"
                         f"void example_{service.findtext('compoundname')}(void) {{\n{code}\n}}\n")
    headers = ("stdio.h", "stdlib.h", "string.h", "sys/wait.h", "unistd.h", "libmarl.h")
    (out / "examples.c").write_text("".join(f"#include <{name}>\n" for name in headers) + "\n" + "\n".join(functions))


for section in (3, 7):
    (out / f"man{section}").mkdir(parents=True, exist_ok=True)
for service in services.values():
    service_page(service)
library_page()
write_examples()
for fault in sorted(set(faults)):
    print(f"docs/manpages.py: {fault}", file=sys.stderr)
sys.exit(1 if faults else 0)
