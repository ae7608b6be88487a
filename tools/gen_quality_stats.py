#!/usr/bin/env python3
"""Build the reference statistics of the text-quality scores.

Writes fuzzy/quality_tables.cpp: the 256 byte counts (Frequences), the
case-sensitive letter-pair table (FreqDigram, 2231 rows) and the upper-case
letter-pair table (FreqUpperDigram, 671 rows).

Corpus
    The French manual pages of the manpages-fr package
    (/usr/share/man/fr/man*/*.gz, symbolic links skipped so that no page is
    counted twice).  The roff source is reduced to its running text:
    comments, requests, macro definitions, tables, verbatim and no-fill
    blocks and the SYNOPSIS sections are dropped; the text arguments of the
    font macros (.B, .I, .BR, ...) and of .IP are kept; escapes become the
    character they stand for (\\- a hyphen, \\(aq an apostrophe, \\[u00E9]
    the code point...) or vanish (font changes, size changes, \\&, ...).
    Every kept line ends with a newline.  The text is counted as UTF-8
    bytes: the byte counts see every byte, the pair counts only pairs of two
    adjacent ASCII letters.

From corpus counts to the tables
    The tables have a fixed shape that any corpus must be fitted to:

    * letters: the 52 ASCII letters sum to 83339029.  Ten of them are pinned
      (e, a, i, r, n, s, t, E, L, w, see PINNED_BYTES); the 42 others share
      what remains in proportion to their corpus counts (largest-remainder
      rounding, so the sum is exact).  Every other byte is scaled by the
      same factor as the letters as a whole (83339029 / corpus letters),
      except the space, which is pinned.
    * pairs: each table sums to 99119456 over its rows.  The five most
      frequent pairs are pinned (de es on en nt; DE ES LE ON EN for the
      folded table).  The other pairs of the corpus, by decreasing count,
      fill the remaining rows (2225 and 665); pairs beyond that are dropped,
      and when the corpus has fewer (the manual pages show about 1600
      case-sensitive and 620 folded pairs), the missing rows are pairs of
      letters it never shows, with count 1, the most likely first (by the
      product of the two letters' counts).  A row with corpus count c gets
      1 + (c - 1) * k, k chosen so that the rows reach the total: the pairs
      seen once keep a count of 1 (the rarest rows of the reference), the
      others stay proportional to the corpus up to that constant.  Counts
      are capped just below the last pinned row so the order holds, rounded
      by largest remainder (ties by row order, which keeps the rows sorted),
      and the rows are written in decreasing count order, ties by key.
    * the folded table counts the corpus after upper-casing the ASCII
      letters (de, De, dE and DE all count as DE).

    So the telling values and totals are exact, while everything else
    carries the shape of the corpus.

How close the scores come to those of the original reference corpus
    (case-sensitive / caseless; reference values in brackets):

      "Le petit chat est sur le toit de la maison"
          letters 0.3106 / 0.3434 (0.31 / 0.35), pairs 0.1200 / 0.1252 (0.126 / 0.132)
      "The quick brown fox jumps over the lazy dog"
          letters 0.1242 / 0.1704 (0.107 / 0.163), pairs 0.0436 / 0.0457 (0.037 / 0.040)

    Within 0.007 for the French sentence and 0.018 for the English one:
    manual pages hold more English words and identifiers than ordinary
    prose, which makes English text look a little less foreign.  Run with --check to print the scores
    of a few reference sentences computed from the fresh tables, without
    writing anything.

Usage: tools/gen_quality_stats.py [--man DIR] [--out FILE] [--check]
"""

import argparse
import gzip
import math
import os
import re
import sys

LETTER_TOTAL = 83339029
DIGRAM_TOTAL = 99119456
DIGRAM_ROWS = 2230
UPPER_ROWS = 670

PINNED_BYTES = {
    ord('e'): 11736764, ord('a'): 6849164, ord('i'): 6284376, ord('r'): 6216277,
    ord('n'): 6157907, ord('s'): 5944357, ord('t'): 5508913, ord('E'): 224885,
    ord('L'): 538217, ord('w'): 189252,
}
PINNED_SPACE = 18363812
PINNED_PAIRS = [("de", 2792961), ("es", 2665625), ("on", 2203740),
                ("en", 2010893), ("nt", 1945886)]
PINNED_UPPER = [("DE", 2881337), ("ES", 2686702), ("LE", 2265751),
                ("ON", 2220799), ("EN", 2043582)]

LETTERS = [ord(c) for c in "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"]
IS_LETTER = [False] * 256
for _c in LETTERS:
    IS_LETTER[_c] = True

# ------------------------------------------------------------------ roff

NAMED = {
    "aq": "'", "dq": '"', "lq": '"', "rq": '"', "oq": "'", "cq": "'",
    "em": "\u2014", "en": "\u2013", "hy": "-", "mi": "-", "bu": "\u2022",
    "co": "\u00a9", "rg": "\u00ae", "tm": "\u2122", "de": "\u00b0",
    "Fo": "\u00ab", "Fc": "\u00bb", "fo": "\u2039", "fc": "\u203a",
    ">=": ">=", "<=": "<=", "->": "->", "<-": "<-", "**": "*", "ti": "~",
    "ha": "^", "rs": "\\", "sl": "/", "ba": "|", "or": "|", "pl": "+",
    "eq": "=", "mu": "x", "e'": "\u00e9", "e`": "\u00e8", "a`": "\u00e0",
    "^e": "\u00ea", "c,": "\u00e7", "u`": "\u00f9", "^o": "\u00f4",
}

FONT_MACROS = {"B", "I", "SM", "SB"}
ALTERNATING = {"BR", "RB", "BI", "IB", "IR", "RI"}
SKIP_BLOCKS = {  # opening request -> closing request
    "nf": "fi", "EX": "EE", "TS": "TE", "Vb": "Ve", "de": "..", "ig": "..",
    "de1": "..", "am": "..", "EQ": "EN",
}

ESCAPE = re.compile(
    r"""\\(?:
        ".*                          # comment
      | f(?:\[[^\]]*\]|\(..|.)       # font change
      | s(?:\[[^\]]*\]|\([+-]?\d\d|[+-]?\d\d?|\(..)  # size change
      | \*(?:\[[^\]]*\]|\(..|.)      # string interpolation
      | n[+-]?(?:\[[^\]]*\]|\(..|.)  # number register
      | [hvwlLoDxbXSZ]'[^']*'        # escapes with a quoted argument
      | \((..)                       # named character, two letters
      | \[([^\]]*)\]                 # named character, bracketed
      | (.)                          # one-character escape
      | $                            # trailing backslash: line continues
    )""",
    re.VERBOSE,
)
ONE_CHAR = {"-": "-", "e": "\\", "\\": "\\", " ": " ", "~": " ", "0": " ",
            "t": "\t", "&": "", "|": "", "^": "", "c": "", "%": "", ":": "",
            "/": "", ",": "", "{": "", "}": "", "'": "'", "`": "`", ".": "."}


def _named(name):
    if name.startswith("u") and re.fullmatch(r"u[0-9A-Fa-f]{4,6}", name):
        return chr(int(name[1:], 16))
    return NAMED.get(name, "")


def unescape(line):
    def repl(m):
        if m.group(1) is not None:
            return _named(m.group(1))
        if m.group(2) is not None:
            return _named(m.group(2))
        if m.group(3) is not None:
            return ONE_CHAR.get(m.group(3), "")
        return ""
    return ESCAPE.sub(repl, line)


def macro_args(rest):
    """Splits the arguments of a macro line, honouring double quotes."""
    args, cur, quoted, i = [], "", False, 0
    while i < len(rest):
        ch = rest[i]
        if ch == '"':
            if quoted and i + 1 < len(rest) and rest[i + 1] == '"':
                cur += '"'
                i += 1
            else:
                quoted = not quoted
        elif ch in " \t" and not quoted:
            if cur:
                args.append(cur)
            cur = ""
        else:
            cur += ch
        i += 1
    if cur:
        args.append(cur)
    return args


def prose_of_page(source):
    """The running text of one roff page, one output line per kept line."""
    out = []
    closing = None
    in_synopsis = False
    for raw in source.splitlines():
        if closing is not None:
            if raw.startswith("." + closing) or raw.startswith("'" + closing):
                closing = None
            continue
        if raw.startswith(".") or raw.startswith("'"):
            body = raw[1:].lstrip()
            name = body.split(None, 1)[0] if body.split() else ""
            rest = body[len(name):].strip()
            if name in SKIP_BLOCKS:
                closing = SKIP_BLOCKS[name]
                continue
            if name in ("SH", "Sh"):
                title = unescape(rest).strip('" ').upper()
                in_synopsis = title in ("SYNOPSIS", "SYNOPSIS ET DESCRIPTION")
                continue
            if in_synopsis:
                continue
            if name in FONT_MACROS:
                text = " ".join(macro_args(rest))
            elif name in ALTERNATING:
                text = "".join(macro_args(rest))
            elif name == "IP":
                args = macro_args(rest)
                text = args[0] if args else ""
            else:
                continue
        else:
            if in_synopsis:
                continue
            text = raw
        text = unescape(text).strip()
        if text:
            out.append(text)
    return "\n".join(out) + ("\n" if out else "")


def corpus_bytes(man_dir):
    pages = []
    for root, dirs, files in os.walk(man_dir):
        dirs.sort()
        for name in sorted(files):
            path = os.path.join(root, name)
            if os.path.islink(path) or not name.endswith(".gz"):
                continue
            pages.append(path)
    chunks = []
    for path in pages:
        with gzip.open(path, "rb") as f:
            source = f.read().decode("utf-8", errors="ignore")
        chunks.append(prose_of_page(source).encode("utf-8"))
    return b"".join(chunks), len(pages)


# ------------------------------------------------------------------ counts

def count_corpus(data):
    byte_counts = [0] * 256
    for b in data:
        byte_counts[b] += 1
    pairs, upper = {}, {}
    for a, b in zip(data, data[1:]):
        if IS_LETTER[a] and IS_LETTER[b]:
            key = a * 256 + b
            pairs[key] = pairs.get(key, 0) + 1
            ukey = (a & ~0x20) * 256 + (b & ~0x20)
            upper[ukey] = upper.get(ukey, 0) + 1
    return byte_counts, pairs, upper


def largest_remainder(values, total):
    """Rounds non-negative reals to integers summing to total; ties go to
    the earlier index, so a non-increasing input stays non-increasing."""
    floors = [int(math.floor(v)) for v in values]
    short = total - sum(floors)
    order = sorted(range(len(values)), key=lambda i: (-(values[i] - floors[i]), i))
    if short < 0 or short > len(values):
        raise SystemExit("cannot round to the total")
    for i in order[:short]:
        floors[i] += 1
    return floors


def build_frequences(byte_counts):
    freq = [0] * 256
    corpus_letters = sum(byte_counts[c] for c in LETTERS)
    free = [c for c in LETTERS if c not in PINNED_BYTES]
    free_total = LETTER_TOTAL - sum(PINNED_BYTES.values())
    free_corpus = sum(byte_counts[c] for c in free)
    scaled = largest_remainder([byte_counts[c] * free_total / free_corpus for c in free],
                               free_total)
    for c, v in zip(free, scaled):
        freq[c] = v
    for c, v in PINNED_BYTES.items():
        freq[c] = v
    factor = LETTER_TOTAL / corpus_letters
    for c in range(256):
        if not IS_LETTER[c]:
            freq[c] = int(round(byte_counts[c] * factor))
    freq[ord(' ')] = PINNED_SPACE
    assert sum(freq[c] for c in LETTERS) == LETTER_TOTAL
    return freq


def build_digrams(counts, pinned, rows, letters_of_table, letter_counts):
    pinned_keys = [ord(p[0]) * 256 + ord(p[1]) for p, _ in pinned]
    rest = sorted(((c, k) for k, c in counts.items() if k not in pinned_keys),
                  key=lambda ck: (-ck[0], ck[1]))
    want = rows - len(pinned)
    if len(rest) < want:
        # Pairs the corpus never shows complete the table with count 1,
        # the most likely first: by the product of the two letters' counts.
        seen = set(pinned_keys) | {k for _, k in rest}
        unseen = sorted((a * 256 + b for a in letters_of_table for b in letters_of_table
                         if a * 256 + b not in seen),
                        key=lambda k: (-letter_counts[k >> 8] * letter_counts[k & 0xFF], k))
        rest += [(1, k) for k in unseen[:want - len(rest)]]
    rest = rest[:want]
    if len(rest) < want:
        raise SystemExit("not enough letter pairs for the table")
    remaining = DIGRAM_TOTAL - sum(v for _, v in pinned)
    cap = pinned[-1][1] - 1
    # Counts above the cap are clamped; k is then solved over the others.
    capped = 0
    while True:
        free = rest[capped:]
        excess = sum(c - 1 for c, _ in free)
        k = (remaining - capped * cap - len(free)) / excess
        if capped < len(rest) and 1 + (rest[capped][0] - 1) * k > cap:
            capped += 1
            continue
        break
    values = [float(cap)] * capped + [1 + (c - 1) * k for c, _ in rest[capped:]]
    ints = largest_remainder(values, remaining)
    table = [(k_, v) for k_, (_, v) in zip(pinned_keys, pinned)]
    table += sorted(((key, v) for (_, key), v in zip(rest, ints)),
                    key=lambda kv: (-kv[1], kv[0]))
    assert len(table) == rows and sum(v for _, v in table) == DIGRAM_TOTAL
    assert all(table[i][1] >= table[i + 1][1] for i in range(rows - 1))
    assert table[-1][1] == 1
    return table, capped, len(counts)


# ------------------------------------------------------------------ scores

def freq_score(text, freq, caseless):
    data = text.encode("utf-8")
    expected = [f / LETTER_TOTAL for f in freq]
    counts = [0] * 256
    for b in data:
        counts[b] += 1
    t = sum(counts[c] for c in LETTERS)
    if t == 0:
        return 0.0
    observed = [c / t for c in counts]
    if caseless:
        for c in range(ord('a'), ord('z') + 1):
            expected[c - 32] += expected[c]
            expected[c] = 0.0
            observed[c - 32] += observed[c]
            observed[c] = 0.0
    d = sum(abs(expected[c] - observed[c]) for c in LETTERS)
    return 1 - min(1.0, math.sqrt(d))


def digram_score(text, table, caseless):
    data = text.encode("utf-8")
    rows = {k: v for k, v in table}
    counts, p = {}, 0
    for a, b in zip(data, data[1:]):
        if IS_LETTER[a] and IS_LETTER[b]:
            key = ((a & ~0x20) * 256 + (b & ~0x20)) if caseless else a * 256 + b
            if key in rows:
                counts[key] = counts.get(key, 0) + 1
                p += 1
    if p == 0:
        return 0.0
    d = sum(abs(rows[k] / DIGRAM_TOTAL - c / p) for k, c in counts.items())
    return 1 - min(1.0, math.sqrt(d))


REFERENCE = [
    ("Le petit chat est sur le toit de la maison", 0.31, 0.35, 0.126, 0.132),
    ("The quick brown fox jumps over the lazy dog", 0.107, 0.163, 0.037, 0.040),
]


# ------------------------------------------------------------------ output

def emit(path, freq, digram, upper, npages, nbytes):
    def key_text(k):
        return "'%s%s'" % (chr(k >> 8), chr(k & 0xFF))

    lines = [
        "// Reference statistics of the text-quality scores.",
        "// Generated by tools/gen_quality_stats.py from the French manual pages",
        "// (%d pages, %d bytes of running text); do not edit by hand." % (npages, nbytes),
        '#include "fuzzy/quality.hpp"',
        "",
        "namespace udfkit::quality {",
        "",
        "const uint32_t Frequences[256] = {",
    ]
    for base in range(0, 256, 8):
        lines.append("    " + " ".join("%u," % v for v in freq[base:base + 8]))
    lines.append("};")
    for name, table in (("FreqDigram", digram), ("FreqUpperDigram", upper)):
        lines += [
            "",
            "// Row 0 is the sentinel; then decreasing corpus count.",
            "DigramEntry %s[%d] = {" % (name, len(table) + 1),
            "    UDFKIT_DIGRAM_ROW(0, 0),",
        ]
        for key, v in table:
            lines.append("    UDFKIT_DIGRAM_ROW(0x%04x, %u),  // %s" % (key, v, key_text(key)))
        lines.append("};")
    lines += ["", "}  // namespace udfkit::quality", ""]
    with open(path, "w") as f:
        f.write("\n".join(lines))


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--man", default="/usr/share/man/fr")
    ap.add_argument("--out", default=os.path.join(os.path.dirname(__file__), "..",
                                                  "fuzzy", "quality_tables.cpp"))
    ap.add_argument("--check", action="store_true")
    args = ap.parse_args()

    data, npages = corpus_bytes(args.man)
    byte_counts, pairs, upper_pairs = count_corpus(data)
    freq = build_frequences(byte_counts)
    lower_letters = LETTERS
    upper_letters = LETTERS[:26]
    folded = [byte_counts[c] + (byte_counts[c + 32] if 65 <= c <= 90 else 0)
              for c in range(256)]
    digram, capped, seen = build_digrams(pairs, PINNED_PAIRS, DIGRAM_ROWS, lower_letters, byte_counts)
    upper, ucapped, useen = build_digrams(upper_pairs, PINNED_UPPER, UPPER_ROWS, upper_letters, folded)
    print("corpus: %d pages, %d bytes, %d letters, %d/%d distinct pairs, capped %d/%d"
          % (npages, len(data), sum(byte_counts[c] for c in LETTERS), seen, useen,
             capped, ucapped), file=sys.stderr)
    for text, f0, f1, d0, d1 in REFERENCE:
        got = (freq_score(text, freq, False), freq_score(text, freq, True),
               digram_score(text, digram, False), digram_score(text, upper, True))
        print("%-45s freq %.4f/%.4f (about %.3f/%.3f)  digram %.4f/%.4f (about %.3f/%.3f)"
              % (text, got[0], got[1], f0, f1, got[2], got[3], d0, d1), file=sys.stderr)
    if not args.check:
        emit(args.out, freq, digram, upper, npages, len(data))


if __name__ == "__main__":
    main()
