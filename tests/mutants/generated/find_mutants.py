"""Finds the mutants of the sources with libclang: the places in the syntax tree, and what replaces each.

A mutant has a file, a function, an operator and a text ("a < b → a <= b"), and one or more sites; one with several
belongs to a constant, and has a site where each function uses it. A site is a range of the file's bytes and a shape:

  condition  an expression whose only use is its truth: `other` replaces it
  value      an expression of a number or a truth: `other` replaces it, converted to `type` if that is given
  statement  a whole statement: `other` replaces it
  declared   the declaration in an if: `other` is the condition that is added behind it

A mutant is `alone` if no site can be switched at run time: it needs a build of its own.
"""

import dataclasses
import multiprocessing
import pathlib
import re

from clang.cindex import Config, CursorKind as Kind, Index, TypeKind

from source_text import SourceText

FOLDERS = ["platform", "base", "state", "hardware", "calibration", "records", "native", "policy", "power", "service",
           "diagnostics", "daemon"]
WITH_MACROS = 1  # CXTranslationUnit_DetailedPreprocessingRecord

NEGATED = {"==": "!=", "!=": "==", "<": ">=", ">=": "<", ">": "<=", "<=": ">"}
BORDERS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}
LOGICAL = {"&&": "||", "||": "&&"}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "<<": ">>", ">>": "<<", "&": "|", "|": "&", "^": "|"}
STEPS = {"++": "--", "--": "++"}
FUNCTIONS = {Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR, Kind.CONVERSION_FUNCTION,
             Kind.FUNCTION_TEMPLATE}
WRAPPERS = {Kind.UNEXPOSED_EXPR, Kind.PAREN_EXPR}
NUMBERS = {TypeKind.CHAR_U, TypeKind.UCHAR, TypeKind.USHORT, TypeKind.UINT, TypeKind.ULONG, TypeKind.ULONGLONG,
           TypeKind.CHAR_S, TypeKind.SCHAR, TypeKind.SHORT, TypeKind.INT, TypeKind.LONG, TypeKind.LONGLONG,
           TypeKind.FLOAT, TypeKind.DOUBLE, TypeKind.LONGDOUBLE}
# Classes of which {} is a value.
DEFAULTS = re.compile(r"^(const )?std::(__cxx11::)?(optional|vector|basic_string|basic_string_view|map|set|array)<")
EMPTY = {"{}", "std::nullopt", "nullptr", "0", "false", '""', "std::string()", "std::string{}"}


@dataclasses.dataclass
class Site:
    file: str
    line: int
    start: int
    end: int
    shape: str
    other: str
    type: str = ""
    # Also evaluated by the compiler.
    constexpr: bool = False


@dataclasses.dataclass
class Mutant:
    file: str
    line: int
    function: str
    operator: str
    text: str
    sites: list
    alone: bool = False
    number: int = 0

    @property
    def name(self):
        return (self.file, self.function, self.operator, self.text)


@dataclasses.dataclass(frozen=True)
class Context:
    function: str = ""
    # The function's result; None in a constructor, or where a lambda leaves it to the compiler.
    result: object = None
    constexpr: bool = False
    # Only evaluated by the compiler, or before main().
    fixed: bool = False


def canonical(kind):
    return kind.get_canonical()


def is_number(kind):
    return canonical(kind).kind in NUMBERS


def is_truth(kind):
    return canonical(kind).kind == TypeKind.BOOL


def name_of(cursor):
    scope = cursor.semantic_parent
    inside = scope is not None and scope.kind in {Kind.CLASS_DECL, Kind.STRUCT_DECL, Kind.CLASS_TEMPLATE}
    name = cursor.spelling.split("<")[0] if cursor.kind == Kind.CONSTRUCTOR else cursor.spelling
    return f"{scope.spelling}::{name}" if inside and scope.spelling else name


def depends_on(text, other):
    """Whether a statement names what the other one assigns to, or whose member it calls."""
    target = re.match(r"(?:\+\+|--)?(\w+(?:(?:\.|->)\w+)*?)(?:\+\+|--|\s*[-+*/%|&^]?=[^=]|(?:\.|->)\w+\()", other)
    return target is not None and re.search(rf"\b{re.escape(target[1])}\b", text) is not None


class Finder:
    """The mutants of the files of one translation unit."""

    def __init__(self, unit, root, files):
        self.root = root
        self.texts = {}
        self.found = {}
        self.constants = {}
        self.uses = {}
        self.has_own_negation = set()
        self.files = {str(root / file): file for file in files}
        self.macros = {}
        for cursor in unit.cursor.get_children():
            if cursor.kind == Kind.MACRO_INSTANTIATION and self.file_of(cursor):
                self.macros.setdefault(self.file_of(cursor), []).append(self.range(cursor))
        for cursor in unit.cursor.get_children():
            if cursor.kind == Kind.NAMESPACE and self.file_of(cursor):
                self.visit_children(cursor, Context())
        self.drop_second_negations()

    def file_of(self, cursor):
        return self.files.get(cursor.location.file.name) if cursor.location.file else None

    def text_of(self, file):
        if file not in self.texts:
            self.texts[file] = SourceText((self.root / file).read_bytes())
        return self.texts[file]

    @staticmethod
    def range(cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def is_in_macro(self, file, start, end):
        return any(start < macro_end and macro_start < end and not (start <= macro_start and macro_end <= end)
                   for macro_start, macro_end in self.macros.get(file, []))

    def add(self, cursor, context, operator, shape, other, start=None, end=None, text=None, type=""):
        file = self.file_of(cursor)
        source = self.text_of(file)
        start, end = (cursor.extent.start.offset if start is None else start,
                      cursor.extent.end.offset if end is None else end)
        if start >= end or self.is_in_macro(file, start, end):
            return
        site = Site(file, source.line(start), start, end, shape, other, type, context.constexpr)
        text = text or f"{source.text(start, end)} → {other or 'nothing'}"
        self.found.setdefault((file, start, end, operator, other),
                              Mutant(file, source.line(start), context.function, operator, text, [site], context.fixed))

    # A condition that is a comparison, a negation or a constant is changed as such.
    def drop_second_negations(self):
        for key in [key for key in self.found if key[3] == "condition"]:
            file, start, end = key[:3]
            if (file, *self.text_of(file).without_parentheses(start, end)) in self.has_own_negation:
                del self.found[key]

    # ---- Declarations

    def visit_children(self, cursor, context):
        for child in cursor.get_children():
            self.visit(child, context)

    def visit(self, cursor, context):
        file = self.file_of(cursor)
        if file is None or cursor.kind == Kind.STATIC_ASSERT or self.range(cursor) in self.macros.get(file, []):
            return
        kind = cursor.kind
        if kind in FUNCTIONS:
            self.visit_function(cursor, context)
        elif kind in {Kind.VAR_DECL, Kind.FIELD_DECL, Kind.PARM_DECL}:
            self.visit_variable(cursor, context)
        elif kind in {Kind.ENUM_CONSTANT_DECL, Kind.TYPE_ALIAS_DECL}:
            self.visit_children(cursor, dataclasses.replace(context, function=cursor.spelling, fixed=True))
        elif kind == Kind.LAMBDA_EXPR:
            self.visit_lambda(cursor, context)
        else:
            self.visit_statement(cursor, context)
            self.visit_expression(cursor, context)
            self.visit_below(cursor, context)

    def visit_below(self, cursor, context):
        children = list(cursor.get_children())
        if cursor.kind == Kind.CASE_STMT:
            children = children[1:]
        elif cursor.kind == Kind.IF_STMT and self.is_constexpr_if(cursor):
            children = children[1:]
        elif cursor.kind in {Kind.DECL_REF_EXPR, Kind.TYPE_REF, Kind.TEMPLATE_REF}:
            children = []
        for child in children:
            self.visit(child, context)

    def is_constexpr_if(self, cursor):
        return self.starts_with(cursor, b"if constexpr")

    def starts_with(self, cursor, word):
        return self.text_of(self.file_of(cursor)).code.startswith(word, cursor.extent.start.offset)

    def says_constexpr(self, cursor):
        file = self.file_of(cursor)
        start, name = cursor.extent.start.offset, cursor.location.offset
        return b"constexpr" in self.text_of(file).code[start:name]

    def visit_function(self, cursor, context):
        bodies = [child for child in cursor.get_children() if child.kind == Kind.COMPOUND_STMT]
        start, end = self.range(cursor)
        if re.search(rb"=\s*default$", self.text_of(self.file_of(cursor)).code[start:end]):
            return
        result = None if cursor.kind == Kind.CONSTRUCTOR else cursor.result_type
        inside = Context(name_of(cursor), result, self.says_constexpr(cursor))
        for child in cursor.get_children():
            if child.kind == Kind.PARM_DECL or bodies:
                self.visit(child, inside)

    def visit_lambda(self, cursor, context):
        """Its body is run, wherever the lambda itself is."""
        text = self.text_of(self.file_of(cursor))
        for child in cursor.get_children():
            if child.kind == Kind.COMPOUND_STMT:
                start = cursor.extent.start.offset
                names_result = b"->" in text.structure[start:child.extent.start.offset]
                self.visit(child, dataclasses.replace(context, result=None if not names_result else "named",
                                                      constexpr=context.constexpr or context.fixed, fixed=False))
            else:
                self.visit(child, context)

    def visit_variable(self, cursor, context):
        scope = cursor.semantic_parent
        global_variable = cursor.kind == Kind.VAR_DECL and scope is not None and scope.kind in {
            Kind.NAMESPACE, Kind.TRANSLATION_UNIT, Kind.CLASS_DECL, Kind.STRUCT_DECL}
        inside = dataclasses.replace(
            context, function=context.function or cursor.spelling,
            constexpr=context.constexpr or cursor.kind != Kind.VAR_DECL,
            fixed=global_variable or context.fixed or self.says_constexpr(cursor))
        if cursor.kind == Kind.FIELD_DECL:
            inside = dataclasses.replace(inside, function=name_of(cursor))
        if inside.fixed and self.says_constexpr(cursor) and (is_number(cursor.type) or is_truth(cursor.type)):
            self.declare_constant(cursor, inside)
        text = self.text_of(self.file_of(cursor))
        for child in cursor.get_children():
            # Before the name is the type, and directly behind it the size of an array.
            at_size = text.structure[:child.extent.start.offset].rstrip().endswith(b"[")
            if child.extent.end.offset > cursor.location.offset and not at_size:
                self.visit(child, inside)

    # ---- Constants

    def declare_constant(self, cursor, context):
        file = self.file_of(cursor)
        start, end = self.range(cursor)
        text = self.text_of(file).text(start, end)
        changed = "its negation" if is_truth(cursor.type) else "1 more"
        self.constants[(file, cursor.location.offset)] = Mutant(
            file, self.text_of(file).line(start), context.function, "constant", f"{text} → {changed}", [])

    def use_constant(self, cursor, context, type):
        variable = cursor.referenced
        if variable is None or variable.kind != Kind.VAR_DECL or variable.location.file is None:
            return
        path = pathlib.Path(variable.location.file.name)
        if self.root not in path.parents or not (is_number(variable.type) or is_truth(variable.type)):
            return
        source = self.text_of(str(path.relative_to(self.root)))
        declared = source.code[variable.extent.start.offset:variable.location.offset]
        file = self.file_of(cursor)
        start, end = self.range(cursor)
        if b"constexpr" not in declared or context.fixed or self.is_in_macro(file, start, end):
            return
        written = self.text_of(file).text(start, end)
        other = f"!{written}" if is_truth(variable.type) else f"{written} + 1"
        key = (str(path.relative_to(self.root)), variable.location.offset)
        type = type or canonical(variable.type).spelling.replace("const ", "")
        use = Site(file, self.text_of(file).line(start), start, end, "value", other, type, context.constexpr)
        self.uses.setdefault(key, {})[(file, start)] = use

    # ---- Expressions

    def visit_expression(self, cursor, context):
        kind = cursor.kind
        if kind in {Kind.BINARY_OPERATOR, Kind.CALL_EXPR, Kind.COMPOUND_ASSIGNMENT_OPERATOR}:
            self.visit_binary(cursor, context)
        elif kind == Kind.UNARY_OPERATOR:
            self.visit_unary(cursor, context)
        elif kind == Kind.CONDITIONAL_OPERATOR:
            self.negate(next(cursor.get_children()), context)
        elif kind == Kind.CXX_BOOL_LITERAL_EXPR:
            file, (start, end) = self.file_of(cursor), self.range(cursor)
            self.has_own_negation.add((file, start, end))
            written = self.text_of(file).text(start, end)
            self.add(cursor, context, "constant", "value", "false" if written == "true" else "true")
        elif kind in {Kind.INTEGER_LITERAL, Kind.FLOATING_LITERAL}:
            self.visit_number(cursor, context, "")
        elif kind == Kind.DECL_REF_EXPR:
            self.use_constant(cursor, context, "")
        elif kind == Kind.UNEXPOSED_EXPR and is_number(cursor.type):
            self.visit_converted(cursor, context)

    # The compiler would refuse to narrow a number that it does not know.
    def visit_converted(self, cursor, context):
        inner = cursor
        while inner.kind == Kind.UNEXPOSED_EXPR:
            children = list(inner.get_children())
            if len(children) != 1 or self.range(children[0]) != self.range(cursor):
                return
            inner = children[0]
        type = canonical(cursor.type).spelling.replace("const ", "")
        if inner.kind in {Kind.INTEGER_LITERAL, Kind.FLOATING_LITERAL}:
            self.visit_number(inner, context, type)
        elif inner.kind == Kind.DECL_REF_EXPR:
            self.use_constant(inner, context, type)

    def visit_number(self, cursor, context, type):
        text = self.text_of(self.file_of(cursor)).text(*self.range(cursor))
        # Not the text of a macro of the system.
        if not re.match(r"[0-9.]", text):
            return
        key = (self.file_of(cursor), *self.range(cursor), "constant", f"{text} + 1")
        if key in self.found:  # with the type that it is converted to
            return
        self.add(cursor, context, "constant", "value", f"{text} + 1", type=type)

    def operator_between(self, cursor):
        """The operator's text and range, and its operands, if the expression is written with one between two."""
        children = list(cursor.get_children())
        file, source = self.file_of(cursor), self.text_of(self.file_of(cursor))
        if cursor.kind == Kind.CALL_EXPR:
            if not re.match(r"operator[=!<>]", cursor.spelling) or len(children) != 3:
                return None
            callee = sorted(children, key=lambda child: child.extent.start.offset)[1]
            start, end = self.range(callee)
        elif len(children) == 2:
            start, end = children[0].extent.end.offset, children[1].extent.start.offset
        else:
            return None
        between = source.structure[start:end]
        operator = between.strip().decode()
        if not operator or self.is_in_macro(file, start, end):
            return None
        at = start + len(between) - len(between.lstrip())
        return operator, at, at + len(operator)

    def visit_binary(self, cursor, context):
        place = self.operator_between(cursor)
        if place is None:
            return
        operator, at, behind = place
        file, (start, end) = self.file_of(cursor), self.range(cursor)
        source = self.text_of(file)
        left = source.text(start, at)
        # Another operator must not bind more tightly than the one in its operand.
        if operator in LOGICAL | ARITHMETIC and re.search(r" ([-+*/%&|^]|<<|>>|&&|\|\|) ", left):
            left = f"({left})"
        with_operator = lambda other: f"{left} {other} {source.text(behind, end)}"
        operands = list(cursor.get_children())
        numbers = all(is_number(operand.type) for operand in operands)
        if operator in NEGATED:
            self.has_own_negation.add((file, start, end))
            other = with_operator(NEGATED[operator]) if operator in {"==", "!="} else f"!({source.text(start, end)})"
            self.add(cursor, context, "negation", "condition", other)
            if operator in BORDERS:
                self.add(cursor, context, "border", "condition", with_operator(BORDERS[operator]))
        elif operator in LOGICAL:
            self.has_own_negation.add((file, start, end))
            self.add(cursor, context, "logic", "condition", with_operator(LOGICAL[operator]))
            for operand in operands:
                self.negate(operand, context)
        elif operator in ARITHMETIC and numbers:
            self.add(cursor, context, "arithmetic", "value", with_operator(ARITHMETIC[operator]))
        elif operator.endswith("=") and operator[:-1] in ARITHMETIC and numbers:
            self.add(cursor, context, "arithmetic", "value", with_operator(ARITHMETIC[operator[:-1]] + "="))

    def visit_unary(self, cursor, context):
        file, (start, end) = self.file_of(cursor), self.range(cursor)
        source = self.text_of(file)
        text = source.text(start, end)
        operand = next(cursor.get_children())
        if text.startswith("!") and not text.startswith("!="):
            self.has_own_negation.add((file, start, end))
            self.negate(operand, context)
        elif text[:2] in STEPS and is_number(cursor.type):
            self.add(cursor, context, "arithmetic", "value", STEPS[text[:2]] + text[2:])
        elif text[-2:] in STEPS and is_number(cursor.type):
            self.add(cursor, context, "arithmetic", "value", text[:-2] + STEPS[text[-2:]])
        elif text.startswith("-") and is_number(cursor.type):
            self.add(cursor, context, "arithmetic", "value", f"({text[1:]})")

    def negate(self, cursor, context):
        text = self.text_of(self.file_of(cursor)).text(*self.range(cursor))
        self.add(cursor, context, "condition", "condition", f"!({text})")

    # ---- Statements

    def visit_statement(self, cursor, context):
        kind = cursor.kind
        if kind == Kind.COMPOUND_STMT:
            statements = list(cursor.get_children())
            for statement in statements:
                self.remove(statement, context)
            for first, second in zip(statements, statements[1:]):
                self.swap(first, second, context)
        elif kind in {Kind.IF_STMT, Kind.WHILE_STMT, Kind.FOR_STMT, Kind.CXX_FOR_RANGE_STMT}:
            self.visit_control(cursor, context)
        elif kind == Kind.DO_STMT:
            self.negate(list(cursor.get_children())[1], context)
        elif kind in {Kind.CASE_STMT, Kind.DEFAULT_STMT}:
            self.remove(list(cursor.get_children())[-1], context)
        elif kind == Kind.RETURN_STMT:
            self.visit_return(cursor, context)

    def visit_control(self, cursor, context):
        start = cursor.extent.start.offset
        source = self.text_of(self.file_of(cursor))
        closing = source.closing(source.structure.index(b"(", start))
        children = list(cursor.get_children())
        for child in children:
            if child.extent.start.offset > closing:
                self.remove(child, context)
        head = [child for child in children if child.extent.start.offset < closing]
        if cursor.kind == Kind.FOR_STMT:
            parts = [part for part in head if source.structure[part.extent.end.offset:].lstrip().startswith(b";")]
            if parts and parts[-1].kind.is_expression():
                self.negate(parts[-1], context)
        elif cursor.kind in {Kind.IF_STMT, Kind.WHILE_STMT} and head and not self.is_constexpr_if(cursor):
            declared = [child for child in head if child.kind == Kind.VAR_DECL]
            if not declared:
                self.negate(head[-1], context)
            elif cursor.kind == Kind.IF_STMT and b";" not in source.structure[start:closing]:
                name = declared[0].spelling
                text = source.text(declared[0].extent.start.offset, closing)
                self.add(declared[0], context, "condition", "declared", f"!static_cast<bool>({name})", end=closing,
                         text=f"{text} → !({name})")

    def statement_end(self, cursor):
        return self.text_of(self.file_of(cursor)).semicolon_after(cursor.extent.end.offset)

    # A call or an assignment, possibly as the operand of a cast to void.
    def has_effect(self, cursor):
        while cursor.kind in WRAPPERS | {Kind.CXX_STATIC_CAST_EXPR}:
            children = list(cursor.get_children())
            if not children:
                return False
            cursor = children[-1]
        if cursor.kind == Kind.BINARY_OPERATOR:
            place = self.operator_between(cursor)
            return place is not None and place[0] == "="
        return cursor.kind in {Kind.CALL_EXPR, Kind.COMPOUND_ASSIGNMENT_OPERATOR, Kind.UNARY_OPERATOR}

    def is_effect(self, cursor):
        return (self.file_of(cursor) is not None and cursor.kind.is_expression() and self.has_effect(cursor) and
                self.statement_end(cursor) is not None)

    def remove(self, cursor, context):
        if self.is_effect(cursor):
            self.add(cursor, context, "removal", "statement", "", end=self.statement_end(cursor))

    # A short if that always continues behind itself counts as a statement, too.
    def is_movable(self, cursor):
        if self.file_of(cursor) is None or cursor.kind != Kind.IF_STMT:
            return self.is_effect(cursor)
        start, end = self.movable_range(cursor)
        code = self.text_of(self.file_of(cursor)).structure[start:end]
        return end - start < 400 and not re.search(rb"\b(return|break|continue)\b", code)

    def movable_range(self, cursor):
        return cursor.extent.start.offset, self.statement_end(cursor) or cursor.extent.end.offset

    def calls_own_function(self, cursor):
        for call in cursor.walk_preorder():
            called = call.referenced if call.kind == Kind.CALL_EXPR else None
            if called is not None and called.kind in FUNCTIONS - {Kind.CONSTRUCTOR} and called.location.file and \
                    self.root in pathlib.Path(called.location.file.name).parents:
                return True
        return False

    def swap(self, first, second, context):
        if not self.is_movable(first) or not self.is_movable(second):
            return
        source = self.text_of(self.file_of(first))
        one, other = self.movable_range(first), self.movable_range(second)
        texts = source.text(*one), source.text(*other)
        if texts[0] == texts[1] or one[1] > other[0]:
            return
        in_order = depends_on(*texts) or depends_on(*reversed(texts))
        if not in_order and not (self.calls_own_function(first) and self.calls_own_function(second)):
            return
        self.add(first, context, "swap", "statement", texts[1], *one, text=f"{texts[0]} ↔ {texts[1]}")
        mutant = self.found.get((self.file_of(first), *one, "swap", texts[1]))
        if mutant is not None and len(mutant.sites) == 1:
            mutant.sites.append(Site(mutant.file, source.line(other[0]), *other, "statement", texts[0],
                                     constexpr=context.constexpr))

    def visit_return(self, cursor, context):
        file, (start, end) = self.file_of(cursor), self.range(cursor)
        source = self.text_of(file)
        behind = self.statement_end(cursor)
        if behind is None:
            return
        values = list(cursor.get_children())
        if not values:
            self.add(cursor, context, "return", "statement", "", end=behind)
            return
        written = source.text(*self.range(values[0]))
        result = values[0].type if context.result is None or context.result == "named" else context.result
        if is_truth(result):
            self.negate(values[0], context)
        elif context.result is None or written in EMPTY:
            return
        elif (is_number(result) or canonical(result).kind in {TypeKind.ENUM, TypeKind.POINTER} or
              DEFAULTS.match(canonical(result).spelling)):
            self.add(cursor, context, "return", "statement", "return {};", end=behind)


def find_in_folder(job):
    root, folder, options = job
    if Config.library_file is None:
        Config.set_library_file("libclang-14.so.1")
    files = sorted(str(path.relative_to(root)) for path in (root / folder).iterdir() if path.suffix in {".cpp", ".h"})
    # One source that includes all of the folder.
    whole = str(root / f"whole_{folder}.cpp")
    lines = "".join(f'#include "{root / file}"\n' for file in files)
    unit = Index.create().parse(whole, ["-std=c++20", f"-I{root}", *options], [(whole, lines)], WITH_MACROS)
    problems = [str(problem) for problem in unit.diagnostics if problem.severity >= 3]
    if problems:
        raise SystemExit("\n".join(problems))
    finder = Finder(unit, root, files)
    return list(finder.found.values()), finder.constants, finder.uses


def without_literals_of(constants, mutants):
    """A constant that is changed where it is used needs no build of its own for a number in its value."""
    ranges = {(mutant.file, mutant.line) for mutant in constants if mutant.sites}
    return [mutant for mutant in mutants if not (mutant.alone and (mutant.file, mutant.line) in ranges)]


def numbered(mutants):
    """In the order of the files; mutants that would have the same name get one with a number."""
    mutants.sort(key=lambda mutant: (mutant.file, mutant.sites[0].start, mutant.sites[0].end, mutant.operator))
    seen = {}
    for number, mutant in enumerate(mutants, 1):
        mutant.number = number
        count = seen[mutant.name] = seen.get(mutant.name, 0) + 1
        if count > 1:
            mutant.text += f" #{count}"
    return mutants


def find(root, folders=FOLDERS, options=(), jobs=1):
    work = [(pathlib.Path(root).resolve(), folder, list(options)) for folder in folders]
    with multiprocessing.Pool(jobs) as pool:
        results = pool.map(find_in_folder, work, chunksize=1)
    mutants = [mutant for found, _, _ in results for mutant in found]
    constants = {key: mutant for _, declared, _ in results for key, mutant in declared.items()}
    for _, _, uses in results:
        for key, sites in uses.items():
            if key in constants:
                constants[key].sites += sites.values()
    mutants = without_literals_of(constants.values(), mutants)
    return numbered(mutants + [mutant for mutant in constants.values() if mutant.sites])
