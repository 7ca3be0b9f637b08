"""Many faults in one build: each stands beside what it replaces, and a number that the tests are
started with says which of them is in force.

    if (a < b) call();      becomes      if ((zarnFault(7) ? (a <= b) : (a < b))) call();

So a build is made once and a fault costs no more than the tests that come past it, which a run
with no fault in force has noted.
"""

import dataclasses
import re

from places import NOT_CODE, blank, closing

PROLOGUE = """\
#pragma once
#if __cplusplus >= 202002L  // CMake tries the compiler out with less
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <type_traits>
// Which fault is in force comes from the environment or, for programs that others start, from a
// file; what is come past is noted behind that file's name when the environment says so.
inline bool zarnFaultInForce(int number) {
  static const int chosen = [] {
    int from_file = 0;
    if (const char* text = std::getenv("ZARN_FAULT")) return std::atoi(text);
    if (std::FILE* file = std::fopen("@FILE@", "r")) {
      if (std::fscanf(file, "%d", &from_file) != 1) from_file = 0;
      std::fclose(file);
    }
    return from_file;
  }();
  if (chosen == -1) {
    static std::atomic<bool> passed[8192];
    if (!passed[number].exchange(true)) {
      if (std::FILE* file = std::fopen("@FILE@.passed", "a")) {
        std::fprintf(file, "%d\\n", number);
        std::fclose(file);
      }
    }
  }
  return chosen == number;
}
constexpr bool zarnFault(int number) {
  return !std::is_constant_evaluated() && zarnFaultInForce(number);
}
#endif
"""

CONTROL = re.compile(r"(?:\} )?(?:else )?(?:if(?: constexpr)?|while|for|switch) \(|else\b|do\b|"
                     r"case [^:;{}]+:(?!:)|default:|(?:public|private|protected):")
NO_STATEMENT = re.compile(r"(?:using|static_assert|template|namespace|enum|friend|typedef|constexpr|inline constexpr|"
                          r"static constexpr|constinit|extern|class|struct|virtual|explicit|operator|goto)\b|\[\[")
DECLARED = re.compile(r"(?:static |const |thread_local |inline )*[A-Za-z_][\w:]*(?:<[^;=]*>)?(?: const)?[ ]?[&*]*[ &*]"
                      r"(?P<name>\w+)(?:\[\w*\])?(?P<mark> = |\()")


@dataclasses.dataclass(frozen=True)
class Region:
    """What is chosen as a whole: an expression, or a statement."""
    begin: int
    end: int
    is_statement: bool


def parts(code, begin, end, separator):
    """The pieces of a text between separators that stand in no parentheses."""
    depth, first = 0, begin
    for at in range(begin, end):
        depth += (code[at] in "([{") - (code[at] in ")]}")
        if code[at] == separator and depth == 0:
            yield first, at
            first = at + 1
    yield first, end


def expression(code, begin, end, place):
    for first, last in parts(code, begin, end, ";"):
        if first <= place.begin and place.end <= last:
            text = code[first:last]
            first += len(text) - len(text.lstrip())
            declared = DECLARED.match(code, first, last)
            if declared:
                return initializer(code, declared, last, place)
            return Region(first, last, False) if not re.search(r"[{}]", text) else None
    return None


def initializer(code, declared, end, place):
    if declared["mark"] == " = ":
        inside = code[declared.end():end]
        only_literals = not re.search(r"[a-zA-Z_](?!\w*')", re.sub(r"true|false|0x[0-9a-f]+", "", inside))
        if place.begin < declared.end() or re.search(r"[{}]", inside) or only_literals:
            return None
        return Region(declared.end(), end, False)
    opening = declared.end() - 1
    for first, last in parts(code, opening + 1, closing(code, opening), ","):
        if first <= place.begin and place.end <= last and not re.search(r"[{}]", code[first:last]):
            return Region(first, last, False)
    return None


def region_of(code, place):
    """What a fault is chosen with; None when it needs a build of its own."""
    if place.kind in ("removed call", "swapped statements"):
        return Region(place.begin, place.end, True)
    if place.kind == "removed lock":
        return None
    begin = place.begin
    depth = 0
    while begin > 0 and (code[begin - 1] not in ";{}" or depth < 0):
        depth += (code[begin - 1] == "(") - (code[begin - 1] == ")")
        begin -= 1
        # What stands between the semicolons of a loop's head belongs to the loop.
        if code[begin - 1] == ";" and re.search(r"\bfor \([^;{}]*(?:;[^;{}]*)?$", code[:begin - 1]):
            begin -= 1
    while True:
        begin += len(code[begin:]) - len(code[begin:].lstrip())
        control = CONTROL.match(code, begin)
        if not control:
            break
        if control.group().endswith("("):
            end = closing(code, control.end() - 1)
            if place.begin < end:
                return expression(code, control.end(), end, place) if "constexpr" not in control.group() else None
            begin = end + 1
        else:
            begin = control.end()
    end = code.find(";", place.end)
    text = code[begin:end]
    if begin > place.begin or end < 0 or re.search(r"[{}]", text) or NO_STATEMENT.match(text):
        return None
    declared = DECLARED.match(code, begin, end)
    if declared and not text.startswith(("return ", "throw ", "delete ")):
        return initializer(code, declared, end, place)
    return Region(begin, end + 1, True)


class Schema:
    """The faults of one file that share its build, by number."""

    def __init__(self, source):
        self.source = source
        self.code = NOT_CODE.sub(blank, source)
        self.regions = {}

    def take(self, number, place):
        """False when the fault needs a build of its own."""
        region = region_of(self.code, place)
        if region is None or place.begin < region.begin or place.end > region.end:
            return False
        if any(region != other and region.begin < other.end and other.begin < region.end for other in self.regions):
            return False
        self.regions.setdefault(region, []).append((number, place))
        return True

    def drop(self, region):
        return [number for number, _ in self.regions.pop(region)]

    def text(self):
        """The file with all of them in it, and for each region where its lines are."""
        result, where, end = [], {}, 0
        line = 1
        for region in sorted(self.regions, key=lambda one: one.begin):
            before = self.source[end:region.begin]
            replaced = self.replaced(region)
            line += before.count("\n")
            where[region] = (line, line + replaced.count("\n"))
            line += replaced.count("\n")
            result += [before, replaced]
            end = region.end
        return "".join(result) + self.source[end:], where

    def replaced(self, region):
        old = self.source[region.begin:region.end]
        if region.is_statement:
            chosen = "".join(f"if (zarnFault({number})) {{ {self.new(region, place)} }} else "
                             for number, place in self.regions[region])
            return f"{{ {chosen}{{ {old} }} }}"
        text = f"({old})"
        for number, place in self.regions[region]:
            text = f"(zarnFault({number}) ? ({self.new(region, place)}) : {text})"
        return text

    def new(self, region, place):
        return (self.source[region.begin:place.begin] + place.text + self.source[place.end:region.end])
