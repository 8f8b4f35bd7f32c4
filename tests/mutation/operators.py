# SPDX-License-Identifier: MIT
"""Mechanical changes: operators that know nothing of what a line means, applied wherever they fit.

A change keeps the number of the file's lines. Comments, texts and preprocessor lines are left alone.
"""
import re

from changes import ROOT, Mutation

ROOMS = ["daemon", "util", "client/pins", "client/request"]

BLANKED = re.compile(r'//[^\n]*|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\''
                     r'|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*|^static_assert\(.*?\);', re.MULTILINE | re.DOTALL)

# What an operator is called, what it looks for, and what it puts in its place.
REPLACED = [
    ("or for and", r"&&", ["||"]),
    ("and for or", r"\|\|", ["&&"]),
    ("shifted bound", r"(?<= )<(?= )", ["<="]),
    ("shifted bound", r"(?<= )<=(?= )", ["<"]),
    ("shifted bound", r"(?<= )>(?= )", [">="]),
    ("shifted bound", r"(?<= )>=(?= )", [">"]),
    ("turned comparison", r"(?<= )==(?= )", ["!="]),
    ("turned comparison", r"(?<= )!=(?= )", ["=="]),
    ("other sign", r"(?<= )\+(?= )", ["-"]),
    ("other sign", r"(?<= )-(?= )", ["+"]),
    ("other shift", r"(?<= )<<(?= )", [">>"]),
    ("other shift", r"(?<= )>>(?= )", ["<<"]),
    ("other step", r"\+\+(?=\w)", ["--"]),
    ("dropped not", r"!(?=[\w(])", [""]),
    ("other flag", r"(?<= )\|(?= )", ["&"]),
    ("other kind", r"\bLogError\b", ["LogNotice"]),
    ("other kind", r"\bLogNotice\b", ["LogError", "LogVerbose"]),
    ("other kind", r"\bLogVerbose\b", ["LogNotice", "LogDebug"]),
    ("other kind", r"\bLogDebug\b", ["LogVerbose"]),
    ("other kind", r"\bLogEnter\b", ["LogLeave"]),
    ("other kind", r"\bLogLeave\b", ["LogEnter"]),
    ("narrowed", r"\buint64_t\b", ["uint32_t"]),
    ("narrowed", r"\bint64_t\b", ["int32_t"]),
    ("narrowed", r"\buint32_t\b", ["uint16_t"]),
    ("narrowed", r"\bint32_t\b", ["int16_t"]),
    ("narrowed", r"\b(?:std::)?size_t\b", ["uint32_t"]),
    ("narrowed", r"\bssize_t\b", ["int16_t"]),
    ("narrowed", r"\boff_t\b", ["int32_t"]),
    ("narrowed", r"\bunsigned long long\b", ["unsigned"]),
    ("narrowed", r"\bunsigned long\b(?! long)", ["unsigned short"]),
    ("other result", r"(?<=return )0(?=;)", ["-1"]),
    ("other result", r"(?<=return )-?1(?=;)", ["0"]),
    ("other result", r"(?<=return )true(?=;)", ["false"]),
    ("other result", r"(?<=return )false(?=;)", ["true"]),
    ("other result", r"\bkRequestDone\b", ["kRequestFailed"]),
    ("other result", r"\bkRequestFailed\b", ["kRequestDone", "kRequestInterrupted"]),
    ("other result", r"\bkRequestInterrupted\b", ["kRequestDone"]),
    ("dropped jump", r"\b(?:break|continue)(?=;)", [""]),
]
NUMBER = re.compile(r"(?<![\w.%])(?:0x[0-9a-fA-F]+|\d+)(?=[UL]*\b)(?![\w.]*')")
CONDITION = re.compile(r"\b(?:if|while) \(")
SINGLE = re.compile(r"(?:(?!&&|\|\|)[^!=]|->)* [!=]= (?:(?!&&|\|\|)[^!=])*")
STATEMENT = re.compile(r"(?<=[;{}:])\s*\n(?P<body>[ \t]+(?!return|case|break|continue|using|const|struct|if|"
                       r"for|while|switch|else|default)[\w:*.\->\[\]+(][^;{}]*;)(?=[ \t]*\n)")
DECLARED = re.compile(r"[ \t]+(?:static |constexpr )?[\w:<>*& ]+[ *&]\w+(?: = | ?\{|\(|;)")


def blanked(text):
    """The text with everything that no operator may touch blanked out, line for line."""
    return BLANKED.sub(lambda found: re.sub(r"[^\n]", " ", found.group()), text)


def closing(text, opening):
    """The place of the parenthesis that closes the one at `opening`."""
    depth = 0
    for place in range(opening, len(text)):
        depth += {"(": 1, ")": -1}.get(text[place], 0)
        if depth == 0:
            return place
    raise ValueError("a parenthesis stays open")


def statements(code):
    """(begin, end) of each statement that stands alone on its lines, in order."""
    return [(found.start("body"), found.end("body")) for found in STATEMENT.finditer(code)]


def edits(text):
    """(operator, begin, end, what replaces that part) of every change of one file."""
    code = blanked(text)
    for name, pattern, replacements in REPLACED:
        for found in re.finditer(pattern, code):
            yield from ((name, found.start(), found.end(), new) for new in replacements)
    for found in NUMBER.finditer(code):
        digits = found.group()
        value = int(digits, 8 if digits.startswith("0") and digits.isdecimal() else 0)
        if not code[:found.start()].endswith("return ") and not code[:found.start()].endswith("return -"):
            yield from (("number one off", found.start(), found.end(), str(new))
                        for new in (value + 1, value - 1) if new >= 0)
    for found in CONDITION.finditer(code):
        end = closing(code, found.end() - 1)
        inside = code[found.end():end]
        # Of a single comparison "turned comparison" makes the same.
        if ";" not in inside and not SINGLE.fullmatch(inside):
            yield "negated condition", found.end(), end, f"!({text[found.end():end]})"
    alone = statements(code)
    for begin, end in alone:
        if not DECLARED.match(code, begin, end):
            kept = "\n" * text.count("\n", begin, end)
            yield "dropped statement", begin, end, ";" + kept
    for (begin, middle), (start, end) in zip(alone, alone[1:]):
        if text[middle:start].strip() == "" and "\n\n" not in text[middle:start]:
            yield ("swapped neighbours", begin, end,
                   text[start:end] + text[middle:start] + text[begin:middle])


def changes_of(path):
    """Every mechanical change of one file, as Mutations, without those that change nothing else."""
    text = (ROOT / path).read_text()
    lines = text.splitlines()
    found = {}
    for name, begin, end, new in edits(text):
        changed = (text[:begin] + new + text[end:]).splitlines()
        first = text.count("\n", 0, begin)
        last = text.count("\n", 0, end)
        old, now = lines[first:last + 1], changed[first:last + 1]
        one = Mutation(f"{path}:{first + 1}", path, name, [line.strip() for line in old], now, first)
        if len(changed) == len(lines) and old != now:
            found.setdefault((first, tuple(line.strip() for line in now)), one)
    return list(found.values())


def every_change():
    """Every mechanical change of the rooms, in order of place."""
    paths = sorted(str(path.relative_to(ROOT)) for room in ROOMS for path in (ROOT / room).iterdir()
                   if path.suffix in (".cpp", ".h"))
    return [change for path in paths for change in sorted(changes_of(path), key=lambda one: one.at)]
