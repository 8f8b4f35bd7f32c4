# SPDX-License-Identifier: MIT
"""Damage done to real bytes, by chance."""
TOKENS = (b"", b"\0", b"\xff", b"\n", b'"', b"{", b"[" * 3000, b"]", b"null", b"-1", b"0", b"4294967296", b"1e999",
          b"99999999999999999999", b"true", b"%s%n", b";", b"#", b"../", b"/", b" ", b"=", b"\xc3", b"A" * 1100)


def _place(random, raw):
    begin = random.randint(0, len(raw))
    return begin, min(len(raw), begin + random.choice((1, 1, 2, 4, 16, 200)))


def _flip(random, raw):
    begin, _ = _place(random, raw)
    return raw[:begin] + bytes(byte ^ (1 << random.randrange(8)) for byte in raw[begin:begin + 1]) + raw[begin + 1:]


def _drop(random, raw):
    begin, end = _place(random, raw)
    return raw[:begin] + raw[end:]


def _repeat(random, raw):
    begin, end = _place(random, raw)
    return raw[:end] + raw[begin:end] * random.choice((1, 3, 50)) + raw[end:]


def _replace(random, raw):
    begin, end = _place(random, raw)
    return raw[:begin] + random.choice(TOKENS) + raw[end:]


def _scramble(random, raw):
    begin, end = _place(random, raw)
    return raw[:begin] + random.randbytes(end - begin) + raw[end:]


def _cut(random, raw):
    return raw[:random.randint(0, len(raw))]


def _exchange(random, raw):
    middle = random.randint(0, len(raw))
    return raw[middle:] + raw[:middle]


_WAYS = (_flip, _flip, _drop, _repeat, _replace, _replace, _replace, _scramble, _cut, _exchange)


def damaged(random, raw):
    """`raw` with one to four pieces of damage."""
    for _ in range(random.randint(1, 4)):
        raw = random.choice(_WAYS)(random, raw)
    return raw
