"""Reads include/pix95.h and writes the ctypes declarations of _api.py.

The header is regular: numeric constants are `#define NAME value`, records
are `typedef struct NAME { type field[dims]; ... } NAME;` and every function
is `PIX_API type PIX_CALL name(arguments);`, possibly over several lines.
Run `python3 -m pix95._header include/pix95.h > python/pix95/_api.py`; a test
regenerates the file and compares, so the two cannot drift.
"""
import re
import sys

_SCALARS = {
    "uint8_t": "c_uint8", "int8_t": "c_int8", "uint16_t": "c_uint16", "int16_t": "c_int16",
    "uint32_t": "c_uint32", "int32_t": "c_int32", "int": "c_int", "double": "c_double",
    "char": "c_char", "size_t": "c_size_t",
}
_OPAQUE = {"FILE", "void", "PIX_HWND", "PIX_HDC"}  # passed as plain addresses


def _strip_comments(text):
    return re.sub(r"/\*.*?\*/", " ", text, flags=re.S)


def parse(text):
    """(constants, records, handlers, functions) of the header text."""
    constants = {}
    for name, value in re.findall(r"^#define\s+([A-Za-z_]\w*)\s+(0[xX][0-9A-Fa-f]+|\d+)[uU]?\s*(?:/\*.*)?$",
                                  text, flags=re.M):
        constants[name] = int(value, 0)
    body = _strip_comments(text)
    records = []
    for name, fields, alias in re.findall(r"typedef\s+struct\s+(\w+)\s*\{(.*?)\}\s*(\w+)\s*;", body, flags=re.S):
        assert name == alias, name
        parsed = []
        for decl in filter(None, (d.strip() for d in fields.split(";"))):
            m = re.fullmatch(r"(?:const\s+)?(\w+)\s*(\**)\s*(\w+)((?:\s*\[\s*\w+\s*\])*)", decl)
            assert m, decl
            dims = [d if d.isdigit() else d for d in re.findall(r"\[\s*(\w+)\s*\]", m.group(4))]
            parsed.append((m.group(3), m.group(1), len(m.group(2)), dims))
        records.append((name, parsed))
    handlers = []
    for ret, name, args in re.findall(r"typedef\s+(\w+)\s*\(\s*PIX_CALL\s*\*\s*(\w+)\s*\)\s*\((.*?)\)\s*;", body,
                                      flags=re.S):
        handlers.append((name, (ret, 0), _arguments(args)))
    functions = []
    for ret, stars, name, args in re.findall(r"PIX_API\s+(?:const\s+)?(\w+)\s*(\**)\s*PIX_CALL\s+(\w+)\s*\((.*?)\)\s*;",
                                             body, flags=re.S):
        functions.append((name, (ret, len(stars)), _arguments(args)))
    return constants, records, handlers, functions


def _arguments(args):
    args = " ".join(args.split())
    if args in ("", "void"):
        return []
    out = []
    for a in args.split(","):
        m = re.fullmatch(r"\s*(const\s+)?(\w+)\s*(\**)\s*\w*\s*", a)
        assert m, a
        out.append((m.group(2), len(m.group(3)), bool(m.group(1))))
    return out


def ctype(base, stars, const=False, result=False, records=(), handlers=()):
    """The ctypes expression of a C type (as source text)."""
    if stars == 0:
        if base == "void":
            return "None"
        if base in handlers:
            return base
        if base in _OPAQUE:
            return "c_void_p"
        return records_name(base, records) or _SCALARS[base]
    if base == "char" and stars == 1 and (const or result):
        return "c_char_p"  # text in, or library-owned text out
    if stars == 1 and base in _OPAQUE:
        return "c_void_p"
    inner = ctype(base, stars - 1, records=records, handlers=handlers)
    return f"POINTER({inner})"


def records_name(base, records):
    return base if base in records else None


def generate(text):
    constants, records, handlers, functions = parse(text)
    names = {n for n, _ in records}
    lines = ['"""ctypes declarations of include/pix95.h, written by pix95._header: do not edit."""',
             "from ctypes import (CFUNCTYPE, POINTER, Structure, c_char, c_char_p, c_double, c_int, c_int8,",
             "                    c_int16, c_int32, c_size_t, c_uint8, c_uint16, c_uint32, c_void_p)", "",
             "CONSTANTS = {"]
    lines += [f"    {n!r}: {v:#x}," for n, v in constants.items()]
    lines += ["}", ""]
    for name, fields in records:
        lines += ["", f"class {name}(Structure):", "    _fields_ = ["]
        for field, base, stars, dims in fields:
            t = ctype(base, stars, records=names)
            for d in reversed(dims):
                t = f"{t} * {d if d.isdigit() else constants[d]}"
            lines.append(f"        ({field!r}, {t}),")
        lines += ["    ]", ""]
    lines.append("")
    for name, (ret, stars), args in handlers:
        types = [ctype(ret, stars, result=True, records=names)]
        types += [ctype(b, s, c, records=names) for b, s, c in args]
        lines.append(f"{name} = CFUNCTYPE({', '.join(types)})")
    hnames = {n for n, _, _ in handlers}
    lines += ["", "# name: (result type, argument types)", "FUNCTIONS = {"]
    for name, (ret, stars), args in functions:
        res = ctype(ret, stars, result=True, records=names, handlers=hnames)
        argv = "".join(ctype(b, s, c, records=names, handlers=hnames) + ", " for b, s, c in args)
        lines.append(f"    {name!r}: ({res}, ({argv.rstrip(' ')})),")
    lines += ["}", ""]
    return "\n".join(lines)


if __name__ == "__main__":
    with open(sys.argv[1], encoding="utf-8") as f:
        sys.stdout.write(generate(f.read()))
