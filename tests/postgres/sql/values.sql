-- How values cross the bridge.
\pset null '<null>'
-- Results equal to the null of their declared type are NULL; the typed
-- empty columns have PostgreSQL's types.
select charcolumn(12) as charcolumn, intcolumn() as intcolumn,
       datecolumn() as datecolumn, datetimecolumn() as datetimecolumn,
       pg_typeof(datecolumn()) as date_type, pg_typeof(datetimecolumn()) as datetime_type,
       valascii('') as valascii_empty, strpos('', 'a', 1) as strpos_empty;
-- NULL arguments reach the library as its nulls: the empty text, INT32_MIN,
-- the null float, the null date.
select udfkit.upper(null) as upper, merge('a', null, 'b') as merge, udfkit.concat(null, null) as concat,
       lastchars('abc', null) as lastchars, champ(null, ';', 1) as champ,
       minx(1, null, 3) is not null as minx_answers, anonymize_first(null, 0) is not null as named,
       udfkit.format(null::date, 'dd') as format_null_date, udfkit.format(null::text, '###') as format_null;
-- Dates: day 1 is 1 January 1810, day 0 (31 December 1809) is the null date;
-- infinities are nulls too.  Dates far from today keep their day.
select udfkit.format(date '1810-01-01', 'dd/mm/yyyy') as day_one,
       udfkit.format(date '1809-12-31', 'dd/mm/yyyy') as day_zero,
       udfkit.format(date '1809-12-30', 'dd/mm/yyyy') as day_minus_one,
       udfkit.format('infinity'::date, 'dd/mm/yyyy') as infinity,
       udfkit.format(date '2405-06-30', 'ddd dd mmm yyyy') as far,
       datetext(date '2020-12-25') as datetext, todate('25/12/2020') as todate;
-- A date given where text is read is its text under DBDATE; a
-- timestamp's text is local to the server (TZ=UTC here).
select merge(date '2020-12-25', timestamptz '2020-12-25 13:45:10+00') as merged,
       udfkit.concat(1.5::float8, 2500000000000000::float8, 0.00005::float8, 42) as numbers,
       datetimetext(todatetime('25/12/2020 13:45')) as roundtrip,
       todatetime('25/12/2020 13:45') as todatetime;
-- Floats reach the masks in plain notation, whatever their magnitude.
select udfkit.format(2.5e15::float8, '&&&&&&&&&&&&&&&&&&&') as big,
       udfkit.format(0.00005::float8, '#.#####') as small,
       udfkit.format(-1e-300::float8, '-#.##') as tiny;
-- PopString cuts a long text at a character boundary: 1500 'é' popped
-- with room for 2047 bytes are 1023 characters, never half of one.
select length(udfkit.upper(repeat('é', 1500))) as chars, octet_length(udfkit.upper(repeat('é', 1500))) as bytes;
-- A result whose end holds half a character loses it.
select lastchars('aé', 1) as half, lastchars('aé', 2) as whole, lastchars('aéb', 2) as tail;
-- A one-character argument is one byte: a separator outside ASCII splits
-- at its first byte, and a text with such a byte inside is an error.
select champ('aébéc', 'é', 2) as field_two;
select group_concat(x, 'é') from (values ('a'), ('b')) v(x);
-- Matches is LIKE: % and _ are the wildcards, backslash escapes.
select list_matches('paris,lyon,,pau', ',', 'p%') as like_p,
       list_matches('paris,lyon,pau', ',', 'p*') as glob_p,
       list_matches('a_b,ab', ',', 'a\_b') as escaped;
-- Texts, numbers and dates pushed by the library meet the declared types.
select pg_typeof(strpos('banana', 'n', 4)) as strpos_type,
       pg_typeof(fuzzysearch('a', 'a')) as fuzzysearch_type,
       pg_typeof(udfkit.convert('a', 'UTF-8', 'UTF-8')) as convert_type,
       pg_typeof(jsonlib_createparser('[]')) as parser_type;
select jsonlib_freeparser(0);
-- group_concat: the newest row's value first, empty rows add nothing,
-- ORDER BY orders the rows it sees, and no row gives NULL.
select group_concat(x, ',') as plain,
       group_concat(x, ';' order by x) as ordered,
       group_concat(x, ',') filter (where false) as no_row
from (values ('x'), (''), (null), ('y'), ('z')) v(x);
select civ, group_concat(name, ',' order by name) as names
from (values ('M', 'jean'), ('F', 'marie'), ('M', 'luc')) v(civ, name) group by civ order by civ;
-- Two results: one row of two columns, NULLs when the call gives nothing.
select kind, handle > 0 as handle from jsonlib_getobject(jsonlib_createparser('{"k": [1, 2]}'));
select kind, jsonlib_getkey(handle) as key from jsonlib_next((select handle from jsonlib_getobject(0)));
select key, jsonlib_getvalue(value) from jsonlib_getkeyvalue(jsonlib_extractobject(0, '$'));
select * from jsonlib_getobject(99);
select jsonlib_freeparser(0);
-- VARIADIC written out, and arrays of floats.
select merge(variadic array['a', '', 'b']) as merge_array, minx(variadic array[3.5, -1, 2]) as minx_array,
       maxx(variadic array[]::float8[]) as maxx_empty, udfkit.concat(variadic null::text[]) as concat_null;
