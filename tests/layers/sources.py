"""C and C++ sources as text: what they include, and which types and functions they declare and define.

No compiler is asked: it would take minutes, and sees one program at a time. What is looked for is what others could
see, so types and functions within unnamed namespaces, classes and functions are passed over.
"""

import functools
import pathlib
import re
from typing import Iterator, NamedTuple, Optional

SUFFIXES = {".c", ".cpp", ".h", ".hpp"}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)
# What can hold a brace, or look like the beginning of a type, without being one.
NOISE = re.compile(
    r"""R"(?P<mark>[^()\\\s]{0,16})\(.*?\)(?P=mark)" | //(?:\\\n|[^\n])* | /\*.*?\*/
        | "(?:\\.|[^"\\\n])*" | (?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+' | ^[ \t]*\#(?:\\\n|[^\n])*""",
    re.DOTALL | re.MULTILINE | re.VERBOSE,
)
TYPE = re.compile(
    r"(?:^|\s)(?:struct|class|union|enum(?:\s+(?:class|struct))?)\s+(?:\[\[[^\]]*\]\]\s*)*"
    r"(?P<name>[A-Za-z_][\w:]*(?:\s*<[^{}]*>)?)\s*(?:final\s*)?(?::(?!:).*)?$",
    re.DOTALL,
)
NAMESPACE = re.compile(r"(?:^|\s)namespace\b\s*(?P<name>[\w:]*)\s*$")
FUNCTION = re.compile(r"(?P<name>(?:[A-Za-z_]\w*\s*::\s*)*(?:~?[A-Za-z_]\w*|operator\s*[^\s\w(]+))\s*\(")
NO_FUNCTION = {"__attribute__", "alignas", "asm", "decltype", "noexcept", "requires", "static_assert", "_Static_assert"}
UNNAMED = None


class Named(NamedTuple):
    """A type or function that others could see."""

    kind: str  # "type", "declared" or "defined"; the latter two are functions
    name: str  # in full


def sources(folder: pathlib.Path) -> list[pathlib.Path]:
    """The sources below a folder."""
    return sorted(path for path in folder.rglob("*") if path.suffix in SUFFIXES)


def includes(path: pathlib.Path) -> list[tuple[str, str]]:
    """(quote, name) of each include."""
    return INCLUDE.findall(path.read_text(encoding="utf-8"))


def opened_by(head: str) -> tuple[str, Optional[str]]:
    """What the brace behind these words opens: ("namespace" | "type" | "other", name)."""
    found = NAMESPACE.search(head)
    if found:
        return "namespace", found["name"] or UNNAMED
    if re.search(r'extern\s*""$', head):
        return "namespace", ""
    head = re.sub(r"template\s*<(?:[^<>]|<[^<>]*>)*>", " ", head)
    found = TYPE.search(head)
    if found and "(" not in head[: found.start("name")] and ")" not in found[0]:
        return "type", found["name"]
    return "other", ""


def function_in(head: str) -> str:
    """The name of the function that these words declare; empty if they declare none."""
    while True:
        shorter = re.sub(r"(?<!operator)<[^<>;{}]*>", "", head)
        if shorter == head:
            break
        head = shorter
    words = head.split()
    if not words or words[0] in {"static", "typedef", "using", "friend", "template"}:
        return ""
    for found in FUNCTION.finditer(head):
        name = re.sub(r"\s", "", found["name"])
        if name not in NO_FUNCTION:
            return name if "=" not in head[: found.start()] else ""
    return ""


def names(text: str) -> Iterator[Named]:
    """The types and functions in a source that others could see."""
    text = NOISE.sub(lambda match: '""' if match[0][0] in "\"'R" else " ", text)
    scopes: list[tuple[str, Optional[str]]] = []
    head = ""

    def in_full(name: str) -> str:
        return "::".join([*(of for _, of in scopes if of), re.sub(r"\s", "", name)])

    for piece in re.split(r"([{};])", text):
        visible = all(outer == "namespace" and of is not UNNAMED for outer, of in scopes)
        if piece == "{":
            kind, name = opened_by(head.strip())
            if kind == "type" and visible:
                yield Named("type", in_full(name))
            elif kind == "other" and visible and function_in(head):
                yield Named("defined", in_full(function_in(head)))
            scopes.append((kind, name))
        elif piece == "}" and scopes:
            scopes.pop()
        elif piece == ";" and visible and function_in(head):
            yield Named("declared", in_full(function_in(head)))
        head = piece if piece not in "{};" else ""
    if scopes:
        raise ValueError(f"{len(scopes)} braces are not closed")


@functools.cache
def names_in(path: pathlib.Path) -> tuple[Named, ...]:
    """The same for a file. Most are part of several programs, and are parsed once."""
    return tuple(names(path.read_text(encoding="utf-8")))


def circles(arrows: dict[str, set[str]]) -> list[list[str]]:
    """The groups that can all be reached from each other (Tarjan); each is sorted, and so is the list."""
    index: dict[str, int] = {}
    lowest: dict[str, int] = {}
    stack: list[str] = []
    found = []

    def visit(node: str) -> None:
        index[node] = lowest[node] = len(index)
        stack.append(node)
        for target in sorted(arrows.get(node, ())):
            if target not in index:
                visit(target)
                lowest[node] = min(lowest[node], lowest[target])
            elif target in stack:
                lowest[node] = min(lowest[node], index[target])
        if lowest[node] == index[node]:
            group = stack[stack.index(node):]
            del stack[stack.index(node):]
            if len(group) > 1:
                found.append(sorted(group))

    for node in sorted(arrows):
        if node not in index:
            visit(node)
    return sorted(found)
