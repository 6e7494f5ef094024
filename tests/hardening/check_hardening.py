#!/usr/bin/env python3
"""What is built is hardened, as far as `readelf` shows it in the binaries themselves.

  programs (and the Python extension)  relocations read-only and bound at the start, no executable
                                       stack, no address fixed; they call the stack protector
  fortified programs                   the same, and they call checking functions of the C library;
                                       the extension has no call that would need one
  archives and objects                 each object marked for control-flow protection; constant
                                       tables where nothing can write once the program runs

The mark of control-flow protection is looked for in the objects: a linker keeps it only where the
start files of the system bear it too, which those of Debian 12 do not.
"""

from __future__ import annotations

import argparse
import re
import subprocess
import sys
from pathlib import Path

# Constants are named kName or NAME; those of a function's own (_ZZ...) are made when it is called.
CONSTANT = re.compile(r"^_ZN8varnholt.*?\d+(k[A-Z]\w*|[A-Z][A-Z_]+)E$")
# What relocations fill in, and the start then makes read-only.
READ_ONLY = re.compile(r"^\.(rodata|data\.rel\.ro)")

# GCC 12 takes data whose class has deduced arguments (std::array k = ...) for data that changes.
REMEDY = "write std::to_array(...), or the arguments of its class"


def readelf(path: Path, *options: str) -> str:
    done = subprocess.run(
        ["readelf", "--wide", *options, str(path)], capture_output=True, text=True, check=False
    )
    if done.returncode != 0:
        raise SystemExit(f"readelf {path}: {done.stderr.strip()}")
    return done.stdout


def check_program(path: Path, fortified: bool) -> list[str]:
    found = []
    segments = readelf(path, "--segments")
    dynamic = readelf(path, "--dynamic")
    symbols = readelf(path, "--dyn-syms")
    if "GNU_RELRO" not in segments:
        found.append("its relocations can be written: link with -Wl,-z,relro")
    if not re.search(r"BIND_NOW|Flags:.*\bNOW\b", dynamic):
        found.append("it binds functions late: link with -Wl,-z,now")
    if "Elf file type is DYN" not in segments:
        found.append("its address is fixed: link with -pie")
    if not re.search(r"GNU_STACK(\s+0x\w+){5}\s+RW\s", segments):
        found.append("its stack can be executed: link with -Wl,-z,noexecstack")
    if "__stack_chk_fail" not in symbols:
        found.append("it has no stack protector: compile with -fstack-protector-strong")
    if fortified and not re.search(r" __(?!stack)\w+_chk\b", symbols):
        found.append("it calls no checking function: compile with -D_FORTIFY_SOURCE=2")
    return found


def check_control_flow(path: Path) -> list[str]:
    members = readelf(path, "--file-header").count("ELF Header:")
    marked = len(re.findall(r"x86 feature:.*IBT.*SHSTK", readelf(path, "--notes")))
    if members > 0 and marked == members:
        return []
    return [f"{members - marked} of {members} objects lack the mark: compile with -fcf-protection"]


def sections_of(text: str) -> dict[str, str]:
    """The names of an object's sections by their numbers."""
    return {
        match[1]: match[2] for match in re.finditer(r"^ +\[ *(\d+)\] (\S+) +[A-Z]", text, re.M)
    }


def check_constants(path: Path) -> tuple[int, list[str]]:
    """How many constants the objects of a file have, and which of them can be written."""
    count = 0
    found = []
    # Members of an archive come one after the other, and the sections of each before its symbols.
    for text in re.split(r"^File: ", readelf(path, "--sections", "--symbols"), flags=re.M):
        sections = sections_of(text)
        for line in text.splitlines():
            fields = line.split()
            if len(fields) < 8 or fields[3] != "OBJECT" or not CONSTANT.match(fields[7]):
                continue
            section = sections.get(fields[6])
            if section is None:
                continue  # Defined elsewhere.
            count += 1
            if not READ_ONLY.match(section):
                found.append(f"{fields[7]} stands in {section}: {REMEDY}")
    return count, found


def main() -> int:
    parser = argparse.ArgumentParser()
    parser.add_argument("--archives", nargs="*", default=[])
    parser.add_argument("--programs", nargs="*", default=[])
    parser.add_argument("--objects", default=[], type=lambda text: text.split(";"))
    parser.add_argument("--control-flow", action="store_true")
    parser.add_argument("--fortified", nargs="*", default=[])
    options = parser.parse_args()
    findings: list[tuple[str, str]] = []
    constants = 0
    for name in options.programs:
        fortified = name in options.fortified
        findings += [(name, text) for text in check_program(Path(name), fortified)]
    for name in [*options.archives, *filter(None, options.objects)]:
        if options.control_flow:
            findings += [(name, text) for text in check_control_flow(Path(name))]
        count, writable = check_constants(Path(name))
        constants += count
        findings += [(name, text) for text in writable]
    if constants == 0:
        findings.append(("all of them", "no constant was found: the check looks for other names"))
    for name, text in findings:
        print(f"{name}: {text}")
    print(f"hardening: {constants} constants, {len(findings)} findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
