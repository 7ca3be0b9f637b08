"""Where a fault can be planted in a source file, and what it looks like there.

A file is read as text in which comments, literals and preprocessor lines are blanked out,
so that nothing is planted in them. What does not compile afterwards is no fault.
"""

import dataclasses
import pathlib
import re


@dataclasses.dataclass(frozen=True)
class Place:
    file: str
    line: int
    kind: str
    begin: int
    end: int
    text: str  # what stands between begin and end instead

    def planted_in(self, source):
        return source[: self.begin] + self.text + source[self.end:]

    def told(self, source):
        def line_of(text):
            first = text.rfind("\n", 0, self.begin) + 1
            return " ".join(text[first: text.find("\n", self.begin + len(self.text))].split())

        return f"{self.file}:{self.line}: {self.kind}: {line_of(source)}  ->  {line_of(self.planted_in(source))}"


NOT_CODE = re.compile(
    r"""//[^\n]*|/\*.*?\*/|R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|"(?:\\.|[^"\\\n])*\""""
    r"""|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])'"""
    r"""|^[ \t]*\#(?:\\\n|[^\n])*""",
    re.DOTALL | re.MULTILINE,
)


def blank(match):
    """A literal leaves a word, so that a call with one in it is still seen as a call."""
    return re.sub(r"[^\n]", " " if match.group()[0] in "/# \t" else "_", match.group())


RELATIONS = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">"}
LEVELS = {"Debug": "Info", "Info": "Warn", "Warn": "Error", "Error": "Warn", "Fatal": "Error"}
CALL = re.compile(r"^(?P<indent> +)(?!return\b|throw\b|delete\b|else\b|using\b|case\b|co_)"
                  r"(?:static_cast<void>\()?[\w:.>()\[\]*!-]*?[\w>]\([^\n]*\);[ ]*$", re.MULTILINE)
LOCK = re.compile(r"^ +(?:const )?\w*Lock (?P<name>\w+)\([^\n]*\);[ ]*$", re.MULTILINE)
DECLARATION = re.compile(r"^\s+(?:const |static |virtual |explicit |\[\[)|^\s+(?!return)[\w:<>,*&]+[ ][\w:]+\(")


def closing(code, opening):
    """Where the parenthesis that opens at `opening` closes; -1 when it does not."""
    depth = 0
    for at in range(opening, len(code)):
        depth += (code[at] == "(") - (code[at] == ")")
        if depth == 0:
            return at
    return -1


def conditions(code):
    for match in re.finditer(r"\b(?:if|while) \(", code):
        opening, end = match.end() - 1, closing(code, match.end() - 1)
        inside = code[opening + 1: end]
        # What declares something is no expression.
        if end > 0 and ";" not in inside and not re.search(r"[^=!<>]=[^=]", inside):
            if match.group().startswith("if"):
                yield opening + 1, end, lambda text: f"!({text})"
    for match in re.finditer(r" (&&|\|\|) ", code):
        yield match.start(1), match.end(1), lambda text: "||" if text == "&&" else "&&"


def statements(code):
    """Lines that are a call and nothing else."""
    for match in CALL.finditer(code):
        before = code[: match.start()].rstrip()
        # Lines may go on from the one before, or say something of a declaration.
        if not before.endswith((";", "{", "}", ")", "else", ":")):
            continue
        if match.group().lstrip().startswith(("ZARN_", ".", "-")):
            continue
        # A name of our own that begins with a capital letter is a constructor's.
        if re.match(r"\s+[A-Z][a-z]+[A-Z]?\w*\(.*[a-z_] [&*]?[a-z]\w*\)", match.group()):
            continue
        if not DECLARATION.match(match.group()) and match.group().count("(") == match.group().count(")"):
            yield match


def swapped(code, source):
    previous = None
    for match in statements(code):
        if previous and previous.end() + 1 == match.start() and previous["indent"] == match["indent"]:
            first, second = source[previous.start(): previous.end()], source[match.start(): match.end()]
            yield previous.start(), match.end(), second + "\n" + first + "\n"
        previous = match


def raw_places(source):
    code = NOT_CODE.sub(blank, source)
    for match in re.finditer(r" (==|!=|<=|>=|<|>) ", code):
        yield "relation", match.start(1), match.end(1), RELATIONS[match[1]]
    for begin, end, change in conditions(code):
        yield "condition", begin, end, change(source[begin:end])
    for match in re.finditer(r"(?<![\w.'])(0x[0-9a-fA-F]+|0|[1-9][\d']*)(?=[uU]?[lL]{0,2}\b)(?![\w.']*[.x])", code):
        number = int(match[1].replace("'", ""), 0)
        yield "constant", match.start(1), match.end(1), str(number + 1)
        if number > 1:
            yield "constant", match.start(1), match.end(1), "0"
    for match in re.finditer(r"\b(true|false)\b", code):
        yield "constant", match.start(), match.end(), "false" if match[1] == "true" else "true"
    for match in statements(code):
        yield "removed call", match.start() + len(match["indent"]), match.start() + len(match.group().rstrip()), ";"
    for match in LOCK.finditer(code):
        yield "removed lock", match.start(), match.end(), ""
    for begin, end, text in swapped(code, source):
        yield "swapped statements", begin, end, text
    for match in re.finditer(r"\bLogLevel::(Debug|Info|Warn|Error|Fatal)\b", code):
        yield "level", match.start(1), match.end(1), LEVELS[match[1]]


def places(root, file):
    source = pathlib.Path(root, file).read_text(encoding="utf-8")
    return [Place(file, source.count("\n", 0, begin) + 1, kind, begin, end, text)
            for kind, begin, end, text in raw_places(source)]
