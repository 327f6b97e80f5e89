#!/usr/bin/env python3
"""Mutants for scripts/mutate.sh: list them, apply one, or take it back.

  mutants.py generate > scripts/mutants.tsv   the fixed list, drawn from src/ deterministically
  mutants.py apply N LIST                     apply mutant N (1-based) to the work tree
  mutants.py show N LIST                      print where mutant N is and what it does

A mutant is one change at one point of one line: a comparison flipped or made strict, an
integer constant +1, an arithmetic operator swapped, a logical operator swapped, a statement or
an early return dropped, two arguments of a call swapped. Each row names the line by its text
and by which occurrence of that text in the file it is, not by its number, so that edits
elsewhere in the file leave the row valid; a row whose line is gone is reported as stale.
"""
import hashlib
import os
import re
import sys

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))
FOLDERS = ["api", "association", "common", "diag", "features", "fft", "runtime", "tracker"]
# Mutants per folder: at least MIN_PER_FOLDER, the rest shared by code size.
TOTAL = 176
MIN_PER_FOLDER = 12

CMP_SWAP = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
ARITH_SWAP = {"+": "-", "-": "+", "*": "/", "/": "*"}
LOGIC_SWAP = {"&&": "||", "||": "&&"}
# Calls whose swapped arguments give the same result (or that only log).
SYMMETRIC_CALLS = {"min", "max", "fminf", "fmaxf", "swap", "ZY_LOGE", "ZY_LOGD", "ZY_LOGI",
                   "ZY_LOGV", "ZY_LOG_MEM_ERROR", "static_assert", "vaddq_f32", "vmulq_f32",
                   "vandq_u32", "vorrq_u32", "vaddq_s32", "vaddq_u16", "vaddq_s16"}
DECL_START = re.compile(
    r"^(const|constexpr|static|auto|int|unsigned|float|double|bool|char|void|size_t|u?int(8|16|32|64)_t|"
    r"long|short|std::|struct|class|enum|using|typedef|template|namespace|return|case|default|"
    r"public|private|protected|extern|inline|alignas|[A-Z][A-Za-z0-9_]*(<[^>]*>)?\s*[*&]?\s+[a-z_]\w*\s*[=;({\[])")


def strip_code(line):
    """The line with string and character literals blanked and any // comment cut off."""
    out, i, n = [], 0, len(line)
    while i < n:
        c = line[i]
        if c in "\"'":
            j = i + 1
            while j < n and line[j] != c:
                j += 2 if line[j] == "\\" else 1
            out.append(c + " " * (min(j, n - 1) - i - 1) + c if j < n else " " * (n - i))
            i = j + 1
            continue
        if line.startswith("//", i):
            break
        out.append(c)
        i += 1
    return "".join(out)


def code_lines(path):
    """(index, raw line, code-only line) for the lines of a file outside comments and directives."""
    with open(path, encoding="utf-8") as f:
        lines = f.read().split("\n")
    in_block = False
    for idx, raw in enumerate(lines):
        line = raw
        if in_block:
            end = line.find("*/")
            if end < 0:
                continue
            line = " " * (end + 2) + line[end + 2:]
            in_block = False
        code = strip_code(line)
        start = code.find("/*")
        if start >= 0:
            end = code.find("*/", start + 2)
            if end < 0:
                in_block = True
                code = code[:start]
            else:
                code = code[:start] + " " * (end + 2 - start) + code[end + 2:]
        stripped = code.strip()
        if not stripped or stripped.startswith("#") or "static_assert" in stripped:
            continue
        if re.search(r"\bZY_LOG[A-Z_]*\(", stripped) and not stripped.startswith("if"):
            continue
        yield idx, lines[idx], code


def candidates(path):
    rel = os.path.relpath(path, ROOT)
    for idx, raw, code in code_lines(path):
        found = []
        for m in re.finditer(r"(?<=\s)(<=|>=|==|!=|<|>)(?=\s)", code):
            # '<' and '>' with blanks on both sides are comparisons, never template brackets here.
            found.append(("cmp", m.start(1), m.group(1), CMP_SWAP[m.group(1)]))
        for m in re.finditer(r"(?<=\s)(&&|\|\|)(?=\s)", code):
            found.append(("logic", m.start(1), m.group(1), LOGIC_SWAP[m.group(1)]))
        for m in re.finditer(r"(?<=[\w)\]] )([-+*/])(?= [\w(])", code):
            found.append(("arith", m.start(1), m.group(1), ARITH_SWAP[m.group(1)]))
        for m in re.finditer(r"(?<![\w.])(\d+)(?![\w.])", code):
            before = code[:m.start(1)]
            if re.search(r"\[\s*$", before) and re.match(r"^\s*\]\s*[;={]", code[m.end(1):]) \
                    and DECL_START.match(code.strip()):
                continue  # an array size in a declaration: a build error, not a mutant
            found.append(("const", m.start(1), m.group(1), str(int(m.group(1)) + 1)))
        for m in re.finditer(r"\b(\w+)\(([\w.>\-\[\]]+), ([\w.>\-\[\]]+)\)", code):
            if m.group(1) in SYMMETRIC_CALLS or m.group(2) == m.group(3):
                continue
            found.append(("swap", m.start(2), m.group(2) + ", " + m.group(3),
                          m.group(3) + ", " + m.group(2)))
        s = code.strip()
        lead = len(code) - len(code.lstrip())
        single = s.endswith(";") and s.count("(") == s.count(")") and "{" not in s and "}" not in s
        if single and re.match(r"^if \(.*\) return\b.*;$", s):
            pos = s.index(") return") + 2
            found.append(("return", lead + pos, s[pos:], "{}"))
        elif single and s.startswith("return ") and not DECL_START.match(s[7:]):
            found.append(("return-drop", lead, s, ";"))
        elif single and not DECL_START.match(s) and not s.startswith(("break", "continue", "goto", "else")) \
                and re.match(r"^[\w.\->\[\]*]+\s*(\(|[-+*/|&^]?=[^=]|\+\+|--)", s):
            found.append(("drop", lead, s, ";"))
        for kind, col, old, new in found:
            yield rel, idx, raw, kind, col, old, new


def occurrence(lines, idx):
    """Which occurrence (0-based) of its own text line idx is within the file."""
    return sum(1 for k in range(idx) if lines[k] == lines[idx])


def generate():
    per_folder = {}
    sizes = {}
    for folder in FOLDERS:
        base = os.path.join(ROOT, "src", folder)
        rows = []
        for name in sorted(os.listdir(base)):
            if not name.endswith((".cpp", ".h")) or name == "sysprop_host.cpp":
                continue
            path = os.path.join(base, name)
            with open(path, encoding="utf-8") as f:
                lines = f.read().split("\n")
            for rel, idx, raw, kind, col, old, new in candidates(path):
                if kind == "return-drop":
                    continue  # a final return dropped falls off the function: undefined, not a fault
                rows.append((rel, idx, occurrence(lines, idx), raw, kind, col, old, new))
        per_folder[folder] = rows
        sizes[folder] = len(rows)
    total_rows = sum(sizes.values())
    quota = {}
    for folder in FOLDERS:
        quota[folder] = max(MIN_PER_FOLDER, round(TOTAL * sizes[folder] / total_rows))
    chosen = []
    for folder in FOLDERS:
        rows = per_folder[folder]
        key = lambda r: hashlib.sha1(f"{r[0]}:{r[3].strip()}:{r[2]}:{r[4]}:{r[5]}".encode()).hexdigest()
        by_kind = {}
        for r in sorted(rows, key=key):
            by_kind.setdefault(r[4], []).append(r)
        picked, kinds = [], sorted(by_kind)
        while len(picked) < min(quota[folder], len(rows)):
            for k in kinds:
                if by_kind[k] and len(picked) < quota[folder]:
                    picked.append(by_kind[k].pop(0))
        chosen.extend(sorted(picked, key=lambda r: (r[0], r[1], r[5])))
    print("# file\toccurrence\tline text\tkind\tcolumn\tfrom\tto  (generated by scripts/mutants.py)")
    for rel, idx, occ, raw, kind, col, old, new in chosen:
        print("\t".join([rel, str(occ), raw, kind, str(col), old, new]))


def read_list(path):
    rows = []
    with open(path, encoding="utf-8") as f:
        for line in f:
            if line.startswith("#") or not line.strip():
                continue
            rel, occ, raw, kind, col, old, new = line.rstrip("\n").split("\t")
            rows.append((rel, int(occ), raw, kind, int(col), old, new))
    return rows


def locate(row):
    """(path, lines, index) of the mutant's line, or None when the line is gone.

    The line is looked for in its own file first; when that file no longer has it (a file split
    in two, a function moved), in the other files of the same folder, provided the line's text
    is found exactly once there."""
    rel, occ, raw, kind, col, old, new = row
    if raw[col:col + len(old)] != old:
        return None
    path = os.path.join(ROOT, rel)
    if os.path.exists(path):
        with open(path, encoding="utf-8") as f:
            lines = f.read().split("\n")
        hits = [k for k, line in enumerate(lines) if line == raw]
        if occ < len(hits):
            return path, lines, hits[occ]
    folder = os.path.dirname(path)
    found = []
    for name in sorted(os.listdir(folder)):
        other = os.path.join(folder, name)
        if other == path or not name.endswith((".cpp", ".h")):
            continue
        with open(other, encoding="utf-8") as f:
            lines = f.read().split("\n")
        found += [(other, lines, k) for k, line in enumerate(lines) if line == raw]
    return found[0] if len(found) == 1 else None


def main():
    if len(sys.argv) >= 2 and sys.argv[1] == "generate":
        generate()
        return 0
    if len(sys.argv) != 4 or sys.argv[1] not in ("apply", "show"):
        print(__doc__, file=sys.stderr)
        return 2
    rows = read_list(sys.argv[3])
    n = int(sys.argv[2])
    if not 1 <= n <= len(rows):
        print(f"mutants.py: no mutant {n} (1..{len(rows)})", file=sys.stderr)
        return 2
    row = rows[n - 1]
    rel, occ, raw, kind, col, old, new = row
    where = locate(row)
    if where is None:
        print(f"{rel}: stale: {raw.strip()}")
        return 3
    path, lines, idx = where
    if sys.argv[1] == "show":
        print(f"{os.path.relpath(path, ROOT)}:{idx + 1}: {kind}: '{old}' -> '{new}'")
        return 0
    lines[idx] = raw[:col] + new + raw[col + len(old):]
    with open(path, "w", encoding="utf-8") as f:
        f.write("\n".join(lines))
    print(f"{os.path.relpath(path, ROOT)}:{idx + 1}: {kind}: '{old}' -> '{new}'")
    return 0


if __name__ == "__main__":
    sys.exit(main())
