#!/usr/bin/env python3
"""The same examples through both hosts: each expression runs in SQLite (the
extension loaded into Python's sqlite3) and in the PostgreSQL server that
PGHOST/PGPORT name (psql), in this order, on one connection each, and the
results must agree (numbers to 1e-9).  Where PostgreSQL writes an example
differently (its own types), the row gives its form.

    same_as_sqlite.py SQLITE_EXTENSION PSQL
"""
import math
import os
import sqlite3
import subprocess
import sys
import time

NOTE = ("Le client M. Dupond habite au 12 rue de la Paix a Paris. "
        "Rappeler avant jeudi.")
DOC = '{"a": {"b": [10, 20.5, "x", true, null]}, "n": "it''s"}'

# (SQLite expression or statement, PostgreSQL form or None for the same).
# Rows starting with '!' are statements run for their effect.
ROWS = [
    # strings
    ("capitalize('hello WORLD')", None),
    ("upper('aBc déjà')", None),
    ("lower('ÉCOLE aBc')", None),
    ("basename('/usr/lib/x.so')", None),
    ("lastchars('abcdef', 2)", None),
    ("strpos('banana', 'n', 4)", None),
    ("valascii('A')", None),
    ("strreplace('aaaa', 'aa', 'x')", None),
    ("concat('n', 42)", None),
    ("merge(1, 'x', 2)", None),
    ("champ('a;b;c', ';', 2)", None),
    ("charcolumn(12)", None),
    ("vcharcolumn(40)", None),
    ("intcolumn()", None),
    ("datecolumn()", None),
    ("datetimecolumn()", None),
    ("minx(3, 1, 2)", None),
    ("maxx(3.5, 1.25, 2)", None),
    ("list_matches('a,b,,c', ',', 'b')", None),
    ("(select group_concat(x, ',') from (select 'x' as x union all select 'y' union all select 'z'))",
     "(select group_concat(x, ',') from (values ('x'), ('y'), ('z')) v(x))"),
    # fuzzy search
    ("fuzzysearch('dupont', 'M. Dupond habite ici')", None),
    ("fuzzysearch('lefevre', 'LEFÈVRE')", None),
    (f"fuzzyhighlight('dupont', '{NOTE}')", None),
    (f"fuzzyexcerpt('dupont', '{NOTE}', 4, 40)", None),
    ("!select fuzzysetspans('[', ']')", None),
    ("fuzzyhighlight('dupont', 'M. Dupond')", None),
    # (a new pattern after each change: SQLite keeps a pattern compiled
    # under the earlier setting)
    ("!select fuzzysetphonex(0)", None),
    ("fuzzysearch('dupond', 'dupont')", None),
    ("!select fuzzysetphonex(1)", None),
    ("fuzzysearch('dupond ', 'dupont')", None),
    # (a search sets the character set of its own call)
    ("!select fuzzysetisocode('ISO-8859-1')", None),
    ("fuzzysearch('lefevre', 'LEFÈVRE')", None),
    ("fuzzyrank('Jean-Noël', 'jean noel')", None),
    ("hex(convert('é', 'UTF-8', 'ISO-8859-1'))",
     "upper(encode(convert('é', 'UTF-8', 'ISO-8859-1'), 'hex'))"),
    ("convert('abc', 'NO-SUCH-CHARSET', 'UTF-8')",
     "convert_from(convert('abc', 'NO-SUCH-CHARSET', 'UTF-8'), 'UTF8')"),
    # text quality
    ("freqquality('Le petit chat est sur le toit de la maison', '', 0)", None),
    ("digramquality('Le petit chat est sur le toit de la maison', '', 1)", None),
    ("textquality('The quick brown fox jumps over the lazy dog', '', 0)", None),
    # JSON: parser 0 in a fresh process of either host
    (f"jsonlib_createparser('{DOC}')", None),
    ("jsonlib_extractobject(0, '$.a.b[1]')", None),
    ("jsonlib_extractobject(0, '$.n')", None),
    ("jsonlib_getkey(jsonlib_extractobject(0, '$'))", None),
    ("jsonlib_getvalue(jsonlib_getvalue(jsonlib_extractobject(0, '$.a')))", None),
    ("(select kind from jsonlib_getobject(0))", None),
    ("(select key from jsonlib_getkeyvalue((select handle from jsonlib_getobject(0))))", None),
    ("(select kind || jsonlib_getkey(handle) from jsonlib_next((select handle from jsonlib_getobject(0))))",
     None),
    ("jsonlib_getvalue4key((select handle from jsonlib_getobject(0)), 'n')", None),
    ("!select jsonlib_freeparser(0)", None),
    ("jsonlib_extractobject(0, '$.n')", None),
    ("jsonlib_createparser('[1, 2')", None),
    # catalogue
    ("!create table systypes (typeid integer, typename text)", None),
    ("!create table syscolattr (tabid integer, colno integer, attrkey text, attrvalue text)", None),
    ("!insert into systypes values (100, 'email_address')", None),
    ("!insert into syscolattr values (1, 7, 'label', 'E-mail'), (1, 7, 'label', 'Courriel'), "
     "(1, 11, 'label', 'Balance'), (1, 11, 'unit', 'EUR'), (1, 11, 'it''s', 'quoted')", None),
    ("coltype2string(5, 1282)", None),
    ("coltype2string(100, 0)", None),
    ("coltype2null(16386)", None),
    ("colattribute(1, 7, 'label')", None),
    ("colattributes(1, 11)", None),
    # anonymisation (dictionaries from UDFKIT_DICT_DIR)
    ("anonymize_first('marie', 2)", None),
    ("anonymize_last('Dupont')", None),
    ("anonymize_letter('Hello world', 'abc')", None),
    ("anonymize_nss('1234567890123', '255')", None),
    ("anonymize_email('jean.dupont@example.fr')", None),
    # masks
    ("format(1234.567, '###,###.##')", None),
    ("format('1e5', '######')", None),
    ("format(asdate(77061), 'ddd dd mmm yyyy')", "format(date '2020-12-25', 'ddd dd mmm yyyy')"),
    ("format(77061, 'dd/mm/yyyy')", None),
    # dates and datetimes (both processes in UTC)
    ("datetext(todate('25/12/2020'))", None),
    ("todate('25/12/2020')", "todate('25/12/2020') - date '1809-12-31'"),
    ("todatetime('25/12/2020 13:45')", "extract(epoch from todatetime('25/12/2020 13:45'))::bigint"),
    ("datetimetext(todatetime('25/12/2020 13:45'))", None),
    ("datesettings()", None),
    # decimals
    ("dec_round('2.675', 10, 2)", "dec_round(2.675, 10, 2)"),
    ("dec_format('3.14159', 5, 4)", "dec_format(3.14159, 5, 4)"),
    ("hex(dec_pack('12345', 4))", "upper(encode(dec_pack(12345, 4), 'hex'))"),
    ("dec_unpack(dec_pack('0.995', 2))", "dec_unpack(dec_pack(0.995, 2))"),
    # conversions and the error flag
    ("cvt('  42abc', 'integer')", None),
    ("cvt('abc', 'integer')", None),
    ("cvt(2.99995, 'integer')", "cvt(2.99995::float8, 'integer')"),
    ("cvt('1,234.567', 'decimal(10,2)')", None),
    ("cvt(asdate(77061), 'char')", "cvt(date '2020-12-25', 'char')"),
    ("cvterror()", None),
    ("cvterror()", None),
]


def sqlite_results(extension):
    db = sqlite3.connect(":memory:")
    db.enable_load_extension(True)
    db.load_extension(extension)
    out = []
    for lite, _ in ROWS:
        if lite.startswith("!"):
            db.execute(lite[1:]).fetchall()
            out.append(None)
        else:
            out.append(db.execute("select " + lite).fetchone()[0])
    return out


def pg_results(psql):
    lines = ["set search_path = udfkit, pg_catalog, public;"]
    for i, (lite, pg) in enumerate(ROWS):
        sql = pg or lite
        if sql.startswith("!"):
            lines.append(sql[1:] + ";")
        else:
            lines.append(f"select '{i}|' || coalesce(encode(convert_to(({sql})::text, 'UTF8'), "
                         f"'hex'), 'NULL');")
    run = subprocess.run([psql, "-X", "-At", "-q"], input="\n".join(lines), text=True,
                         capture_output=True)
    if run.stderr.strip():
        print(run.stderr.strip(), file=sys.stderr)
    got = {}
    for line in run.stdout.splitlines():
        i, _, v = line.partition("|")
        if i.isdigit():
            got[int(i)] = None if v == "NULL" else bytes.fromhex(v).decode("utf-8")
    return got


def same(lite, pg):
    if isinstance(lite, bytes):
        lite = lite.decode("utf-8", "replace")
    if isinstance(lite, (int, float)) and pg is not None:
        try:
            return math.isclose(float(lite), float(pg), rel_tol=1e-9, abs_tol=1e-12)
        except ValueError:
            return False
    return (lite if lite is None else str(lite)) == pg


def main():
    os.environ["TZ"] = "UTC"
    time.tzset()
    lite, pg = sqlite_results(sys.argv[1]), pg_results(sys.argv[2])
    checked = [i for i, (expr, _) in enumerate(ROWS) if not expr.startswith("!")]
    failed = [i for i in checked if i not in pg or not same(lite[i], pg[i])]
    for i in failed:
        print(f"differs: {ROWS[i][0]}\n  sqlite:     {lite[i]!r}\n  postgresql: {pg.get(i, '(error)')!r}")
    print(f"same as sqlite: {len(checked) - len(failed)} of {len(checked)} examples agree")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
