"""The text of a C++ source, for edits at offsets of its bytes."""

import re

# Comments, raw strings, strings and characters, in the order in which they have to be tried.
LITERAL = re.compile(rb'//[^\n]*|/\*.*?\*/|R"([^(\s]*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|(?<![0-9a-zA-Z])\'(?:\\.|[^\'\\\n])*\'',
                     re.DOTALL)
BRACKETS = {ord("("): ord(")"), ord("["): ord("]"), ord("{"): ord("}")}


def blanked(match):
    return re.sub(rb"[^\n]", b" ", match.group())


class SourceText:
    def __init__(self, data):
        self.data = data
        # The same length: comments are blank in `code`, and in `structure` strings too.
        self.code = LITERAL.sub(lambda m: blanked(m) if m.group().startswith(b"/") else m.group(), data)
        self.structure = LITERAL.sub(blanked, data)

    def line(self, offset):
        return self.data.count(b"\n", 0, offset) + 1

    # Without comments, on one line.
    def text(self, start, end):
        return re.sub(r"\s+", " ", self.code[start:end].decode()).strip()

    def closing(self, opening):
        """The offset of the bracket that belongs to the one at `opening`."""
        open_bracket, close_bracket = self.structure[opening], BRACKETS[self.structure[opening]]
        depth = 0
        for offset in range(opening, len(self.structure)):
            depth += (self.structure[offset] == open_bracket) - (self.structure[offset] == close_bracket)
            if depth == 0:
                return offset
        raise ValueError(f"no bracket closes line {self.line(opening)}")

    def semicolon_after(self, end):
        """The offset behind the semicolon that directly follows, or None."""
        following = re.compile(rb"\s*;").match(self.structure, end)
        return following.end() if following else None

    def without_parentheses(self, start, end):
        while self.structure[start:start + 1] == b"(" and self.closing(start) == end - 1:
            start, end = start + 1, end - 1
            while self.structure[start:start + 1].isspace():
                start += 1
            while self.structure[end - 1:end].isspace():
                end -= 1
        return start, end
