"""Writes ztdbtools.pyi from the member tables of the built module, so that editors complete the
names of every class and member. Run at build time: make_stubs.py OUTPUT."""
import keyword
import sys

import ztdbtools

HEADER = '''"""Type stubs of ztdbtools, written from the library's member tables. Do not edit."""
import datetime
import decimal
from typing import Any, Literal, overload

Value = Any  # None, bool, int, float, str, bytes, datetime, Decimal, list, Object

class ZtError(Exception):
    number: int
    source: str
    description: str
    help_file: str
    help_context: int
    sql_state: str
    native_error: int
    def __init__(self, number: int = ..., source: str = ..., description: str = ...,
                 help_file: str = ..., help_context: int = ..., sql_state: str = ...,
                 native_error: int = ...) -> None: ...

class ZtMemberError(ZtError, AttributeError): ...

class Object:
    def __getattr__(self, name: str) -> Any: ...
    def __setattr__(self, name: str, value: Value) -> None: ...

class Member:
    def __call__(self, *args: Value) -> Any: ...

def classes() -> list[str]: ...
def class_info(name: str) -> dict[str, Any]: ...
def type_name(o: Object) -> str: ...
def live_objects() -> int: ...
def can_unload_now() -> bool: ...
'''


def parameters(min_args, max_args):
    params = ["self"]
    for i in range(max_args):
        params.append(f"arg{i}: Value" + ("" if i < min_args else " = ..."))
    return ", ".join(params)


def class_stub(info):
    lines = [f"class {info['name']}(Object):"]
    seen = set()
    for name, kind, min_args, max_args, by_ref in info["members"]:
        key = name.lower()
        if key in seen or keyword.iskeyword(name):
            continue
        seen.add(key)
        if kind in ("get", "put") and max_args == (1 if kind == "put" else 0):
            lines.append(f"    {name}: Any")
        else:
            result = "tuple[Any, ...]" if any(by_ref) else "Any"
            lines.append(f"    def {name}({parameters(min_args, max_args)}) -> {result}: ...")
    if len(lines) == 1:
        lines.append("    ...")
    return "\n".join(lines) + "\n"


def main(output):
    infos = [ztdbtools.class_info(p) for p in ztdbtools.classes()]
    parts = [HEADER]
    for info in infos:
        parts.append(class_stub(info))
    for info in infos:
        if not info["creatable"]:
            continue
        names = f'"{info["name"]}", "{info["prog_id"]}"'
        parts.append(f"@overload\ndef create(prog_id: Literal[{names}]) -> {info['name']}: ...\n")
    parts.append("@overload\ndef create(prog_id: str) -> Object: ...\n")
    with open(output, "w", encoding="utf-8") as f:
        f.write("\n".join(parts))


if __name__ == "__main__":
    main(sys.argv[1])
