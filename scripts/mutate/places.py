# SPDX-License-Identifier: Apache-2.0
"""Finds the places of a C++ file where a small change makes a mutant, by its syntax tree."""
import dataclasses
import re

from clang.cindex import CursorKind as Kind
from clang.cindex import Index

SWAPS = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"], "&": ["|"], "|": ["&"],
    "^": ["&"], "<<": [">>"], ">>": ["<<"], "+=": ["-="], "-=": ["+="], "*=": ["/="], "/=": ["*="], "|=": ["&="],
    "&=": ["|="], "^=": ["|="], "<<=": [">>="], ">>=": ["<<="], "++": ["--"], "--": ["++"], "!": [""], "~": [""],
}
COMPARISONS = {"==", "!=", "<", "<=", ">", ">="}
FUNCTIONS = {Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR, Kind.CONVERSION_FUNCTION,
             Kind.FUNCTION_TEMPLATE}
CONDITIONALS = {Kind.IF_STMT, Kind.WHILE_STMT, Kind.CONDITIONAL_OPERATOR}
LEAVES = {Kind.RETURN_STMT, Kind.BREAK_STMT, Kind.CONTINUE_STMT}
BODIES = {Kind.COMPOUND_STMT, Kind.IF_STMT, Kind.WHILE_STMT, Kind.FOR_STMT, Kind.DO_STMT, Kind.CASE_STMT,
          Kind.DEFAULT_STMT, Kind.CXX_FOR_RANGE_STMT}
DECLARATIONS = {Kind.VAR_DECL, Kind.FIELD_DECL, Kind.PARM_DECL, Kind.TYPEDEF_DECL, Kind.TYPE_ALIAS_DECL}


@dataclasses.dataclass(frozen=True, order=True)
class Mutant:
    """Bytes begin to end of the file give way to the text. A function of 0 means that the place lies in none."""
    file: str
    line: int
    begin: int
    end: int
    text: str
    last_line: int
    function: int


class Places:
    """The mutants of one file, in the order of the file."""

    def __init__(self, tree, file, arguments):
        path = f"{tree}/{file}"
        with open(path, "rb") as source:
            self.source = source.read()
        self.file = file
        self.path = path
        self.mutants = set()
        unit = Index.create().parse(path, args=arguments)
        errors = [d for d in unit.diagnostics if d.severity >= 3]
        if errors:
            raise RuntimeError(f"cannot parse {file}: {errors[0]}")
        for child in unit.cursor.get_children():
            if child.location.file and child.location.file.name == path:
                self._visit(child, unit.cursor, 0)

    def sorted(self):
        return sorted(self.mutants)

    def _add(self, begin, end, text, function):
        first = self.source.count(b"\n", 0, begin) + 1
        last = first + self.source.count(b"\n", begin, end)
        self.mutants.add(Mutant(self.file, first, begin, end, text, last, function))

    def _text(self, begin, end):
        return self.source[begin:end].decode()

    def _between(self, operands):
        return self._text(operands[0].extent.end.offset, operands[-1].extent.start.offset).strip()

    def _visit(self, cursor, parent, function):
        if cursor.kind == Kind.STATIC_ASSERT:
            return
        children = list(cursor.get_children())
        if cursor.kind in FUNCTIONS and cursor.is_definition():
            function = cursor.extent.start.line
        begin, end = cursor.extent.start.offset, cursor.extent.end.offset
        if cursor.kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR) and len(children) == 2:
            self._binary(children, function)
        elif cursor.kind == Kind.CALL_EXPR and re.fullmatch(r"operator\W+", cursor.spelling) and len(children) > 1:
            self._overloaded(sorted(children, key=lambda child: child.extent.start.offset), function)
        elif cursor.kind == Kind.UNARY_OPERATOR and children:
            self._unary(begin, end, children[0], function)
        elif cursor.kind in (Kind.INTEGER_LITERAL, Kind.CXX_BOOL_LITERAL_EXPR):
            self._literal(begin, end, parent, function)
        elif cursor.kind == Kind.DECL_REF_EXPR and cursor.referenced:
            self._enumerator(begin, end, cursor.referenced, function)
        if cursor.kind in CONDITIONALS:
            self._negate(children, function)
        if function and parent.kind in BODIES:
            self._drop(cursor, parent, children, function)
        for child in children:
            self._visit(child, cursor, function)

    def _binary(self, operands, function):
        begin, end = operands[0].extent.end.offset, operands[1].extent.start.offset
        operator = self._text(begin, end).strip()
        at = begin + self.source[begin:end].find(operator.encode())
        for text in SWAPS.get(operator, []):
            self._add(at, at + len(operator), text, function)

    def _overloaded(self, operands, function):
        # Streams and strings have no other operator that compiles.
        if self._between(operands) not in ("<<", ">>", "+", "+="):
            self._binary([operands[0], operands[-1]], function)

    def _unary(self, begin, end, operand, function):
        prefix = operand.extent.start.offset
        if prefix == begin:
            begin, prefix = operand.extent.end.offset, end
        for text in SWAPS.get(self._text(begin, prefix).strip(), []) if prefix - begin <= 2 else []:
            if self._text(begin, prefix) not in ("-", "+", "*", "&"):
                self._add(begin, prefix, text, function)

    def _literal(self, begin, end, parent, function):
        text = self._text(begin, end)
        if text in ("true", "false"):
            self._add(begin, end, "false" if text == "true" else "true", function)
            return
        number = re.fullmatch(r"(0[xX][0-9a-fA-F']+|[0-9']+)([uUlLzZ]*)", text)
        # The size of an array is room, not behaviour.
        before = self._text(0, begin).rstrip()[-1:]
        if number is None or (parent.kind in DECLARATIONS and before in "[<,"):
            return
        digits = number[1].replace("'", "")
        value = int(digits, 8 if re.fullmatch("0[0-7]+", digits) else 0) + 1
        self._add(begin, end, (hex(value) if digits[:2].lower() == "0x" else str(value)) + number[2], function)

    def _enumerator(self, begin, end, target, function):
        if target.kind != Kind.ENUM_CONSTANT_DECL or not self._text(begin, end).endswith(target.spelling):
            return
        names = [child.spelling for child in target.semantic_parent.get_children()]
        following = names[(names.index(target.spelling) + 1) % len(names)]
        if following != target.spelling:
            self._add(end - len(target.spelling), end, following, function)

    def _negate(self, children, function):
        condition = next((child for child in children if child.kind.is_expression()), None)
        if condition is None:
            return
        begin, end = condition.extent.start.offset, condition.extent.end.offset
        text = self._text(begin, end)
        operands = list(condition.get_children())
        # These have a mutant of the same meaning already.
        if text.startswith("!") or (condition.kind == Kind.BINARY_OPERATOR and self._between(operands) in COMPARISONS):
            return
        self._add(begin, end, f"!({text})", function)

    def _drop(self, cursor, parent, children, function):
        inner = cursor
        while inner.kind == Kind.UNEXPOSED_EXPR and children:
            inner = children[0]
            children = list(inner.get_children())
        begin, end = cursor.extent.start.offset, cursor.extent.end.offset
        statement = inner.kind in (Kind.CALL_EXPR, Kind.COMPOUND_ASSIGNMENT_OPERATOR, Kind.UNARY_OPERATOR) or (
            inner.kind == Kind.BINARY_OPERATOR and re.search(r"[^=!<>]=[^=]", self._text(begin, end)))
        follows = self.source[end:end + 1] == b";"
        if inner.kind == Kind.RETURN_STMT and children:
            # Without its last return a function has no defined result.
            last = self.source[end:].split(b";", 1)[-1].lstrip()[:1] == b"}"
            follows = follows and not (last and parent.extent.start.line <= function + 3)
        if follows and (statement or inner.kind in LEAVES):
            self._add(begin, end, "", function)
