"""What C++ headers declare, as the compiler understands it."""
import ctypes
import pathlib
import sys

from clang import cindex
from clang.cindex import CursorKind

SCOPES = {CursorKind.NAMESPACE, CursorKind.CLASS_DECL, CursorKind.STRUCT_DECL, CursorKind.UNION_DECL,
          CursorKind.LINKAGE_SPEC, CursorKind.UNEXPOSED_DECL}
FUNCTIONS = {CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR,
             CursorKind.DESTRUCTOR, CursorKind.CONVERSION_FUNCTION}
NOT_AVAILABLE = 2

cindex.conf.lib.clang_getCursorAvailability.argtypes = [cindex.Cursor]
cindex.conf.lib.clang_getCursorAvailability.restype = ctypes.c_int


def declared(include, options):
    """All that the headers in that directory declare, without what they include from elsewhere."""
    include = pathlib.Path(include).resolve()
    headers = sorted(include.rglob("*.h"))
    everything = f"{include}/every header.cpp"
    source = "".join(f'#include "{header.relative_to(include)}"\n' for header in headers)
    unit = cindex.Index.create().parse(
        everything, ["-std=c++20", f"-I{include}", *options], [(everything, source)])
    for fault in unit.diagnostics:
        if fault.severity >= cindex.Diagnostic.Error:
            sys.exit(str(fault))
    yield from below(unit.cursor, f"{include}/")


def below(scope, include):
    for cursor in scope.get_children():
        file = cursor.location.file
        if file is not None and file.name.startswith(include):
            yield cursor
            if cursor.kind in SCOPES:
                yield from below(cursor, include)


def is_defined_elsewhere(cursor):
    """Whether the function or variable is one that the library has to define."""
    return (cursor.kind in FUNCTIONS | {CursorKind.VAR_DECL} and cursor.get_definition() is None
            and not cursor.is_pure_virtual_method() and not cursor.is_default_method()
            and cindex.conf.lib.clang_getCursorAvailability(cursor) != NOT_AVAILABLE)


def qualified(cursor):
    scopes = []
    while cursor is not None and cursor.kind != CursorKind.TRANSLATION_UNIT:
        if cursor.kind != CursorKind.LINKAGE_SPEC:
            scopes.append(cursor.spelling.split("<")[0])
        cursor = cursor.semantic_parent
    return "::".join(reversed(scopes))
