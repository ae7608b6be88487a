-- Hostile input: every function with every argument NULL, empty, 1.5 MB
-- long, full of characters U+0080-U+00FF, at the ends of its type's range.
-- Each call gives a result or a PostgreSQL error, never a crash (the test
-- driver checks that the server did not restart).
\pset null '<null>'
-- Sample values per argument type, the first one the ordinary value.
create table samples (type regtype, value text, ord int);
insert into samples values
  ('text', '''dupont jean''', 0), ('text', 'NULL', 1), ('text', '''''', 2),
  ('text', 'repeat(''é dupont '', 150000)', 3),
  ('text', '(select string_agg(chr(c), '''') from generate_series(128, 255) c)', 4),
  ('text', '''%s%n%x%99999999d''', 5),
  ('integer', '3', 0), ('integer', 'NULL', 1), ('integer', '-2147483648', 2),
  ('integer', '2147483647', 3), ('integer', '-1', 4), ('integer', '0', 5),
  ('bigint', '549755813890', 0), ('bigint', 'NULL', 1), ('bigint', '9223372036854775807', 2),
  ('bigint', '-1', 3),
  ('double precision', '0.5', 0), ('double precision', 'NULL', 1),
  ('double precision', '''NaN''', 2), ('double precision', '''-Infinity''', 3),
  ('double precision', '-1e308', 4), ('double precision', '5e-324', 5),
  ('date', 'date ''2020-12-25''', 0), ('date', 'NULL', 1), ('date', '''infinity''', 2),
  ('date', 'date ''4713-01-01 BC''', 3), ('date', 'date ''5874897-12-31''', 4),
  ('timestamp with time zone', 'timestamptz ''2020-12-25 13:45+00''', 0),
  ('timestamp with time zone', 'NULL', 1), ('timestamp with time zone', '''-infinity''', 2),
  ('timestamp with time zone', 'timestamptz ''294276-12-31 23:59+00''', 3),
  ('numeric', '1234.5', 0), ('numeric', 'NULL', 1), ('numeric', '''NaN''', 2),
  ('numeric', '1e200', 3), ('numeric', '-1e-200', 4),
  ('bytea', '''\xc3a9''', 0), ('bytea', 'NULL', 1), ('bytea', '''\x''', 2),
  ('bytea', '''\xff00ee''', 3),
  ('"any"', '''x''', 0), ('"any"', 'NULL::text', 1), ('"any"', 'repeat(''x'', 1500000)', 2),
  ('"any"', '-1e308::float8', 3), ('"any"', 'date ''infinity''', 4),
  ('double precision[]', 'array[1.5, 2]::float8[]', 0),
  ('double precision[]', 'array[null, ''NaN'']::float8[]', 1), ('double precision[]', 'NULL', 2);
-- Calls each function with one argument at a time taking each of its
-- type's samples (the others ordinary), then with every argument NULL;
-- returns how many calls each made and the start of the errors they
-- raised.  A text result that is not UTF-8 is an error too; which inputs
-- give one depends on the library's functions, not on this host, so those
-- errors are left out here.
create function exercise()
returns table (fn text, calls int, errors text) language plpgsql as $$
declare
  f record; i int; s record; args text[]; sql text; n int; errs text[]; msg text; last int;
begin
  for f in select p.oid, p.proname, p.proargtypes::regtype[] as types
           from pg_proc p where p.pronamespace = 'udfkit'::regnamespace and p.prokind = 'f'
           order by p.proname, p.oid loop
    n := 0; errs := '{}';
    last := coalesce(array_upper(f.types, 1), -1);
    for i in 0 .. last + 1 loop
      for s in select value from samples
               where i <= last and type = f.types[i]
               union all select 'ALLNULL' where i = last + 1 loop
        args := '{}';
        for k in 0 .. last loop
          args := args || case when s.value = 'ALLNULL' then 'NULL::' || f.types[k]::text
                               when k = i then s.value
                               else (select value from samples where type = f.types[k] and ord = 0) end;
        end loop;
        if last >= 0 and f.types[last]::text like '%[]' then
          args[last + 1] := 'variadic ' || args[last + 1];
        end if;
        sql := format('select udfkit.%I(%s)::text', f.proname, array_to_string(args, ', '));
        n := n + 1;
        begin
          execute sql;
        exception when others then
          msg := left(regexp_replace(sqlerrm, '"[^"]*"', '"..."', 'g'), 60);
          if sqlerrm not like '%not valid UTF-8' and not msg = any(errs) then
            errs := errs || msg;
          end if;
        end;
      end loop;
    end loop;
    fn := f.proname || '(' || array_to_string(f.types::text[], ', ') || ')';
    calls := n;
    errors := nullif(array_to_string(errs, ' | '), '');
    return next;
  end loop;
end $$;
create temp table exercised as select * from exercise();
select count(*) > 60 as every_function_called, sum(calls) > 600 as calls from exercised;
select fn, errors from exercised where errors is not null order by fn;
reset udfkit.span_open;
reset udfkit.span_close;
reset udfkit.phonex;
reset udfkit.isocode;
-- Outputs that would pass the largest text PostgreSQL holds are refused
-- before they are built.
select length(strreplace(repeat('a', 1000000), 'a', repeat('b', 4096))) as too_long;
select length(udfkit.concat(repeat('x', 1048576), repeat('y', 1048576))) as two_mb;
-- Forged and stale node handles read as no node; of 200 parsers, those
-- beyond the 100 numbers get -1.
select jsonlib_createparser('{"a": [1, 2]}') as parser;
select jsonlib_getkey(handle) as live from jsonlib_next((select handle from jsonlib_getobject(0)));
select jsonlib_getkey(h) as forged, jsonlib_getvalue(h) as forged_value
from (values (1::bigint), (-1), (9223372036854775807),
             ((select handle from jsonlib_getobject(0)) + (1::bigint << 39))) v(h);
create temp table stale as select handle from jsonlib_getobject(0);
select jsonlib_freeparser(0);
select jsonlib_createparser('{"b": [3]}') as reused;
select jsonlib_getkey(handle) as stale_key, jsonlib_getvalue(handle) as stale_value from stale;
select count(*) filter (where p >= 0) as numbered, count(*) filter (where p = -1) as refused
from (select jsonlib_createparser('[1]') as p from generate_series(1, 200)) s;
select count(*) as freed from (select jsonlib_freeparser(p) from generate_series(0, 99) p) s;
-- Masks of 200 characters are cut to 99.
select length(udfkit.format(1234.5, repeat('#', 200))) as number_mask,
       length(udfkit.format(date '2020-12-25', repeat('d', 200))) as date_mask;
-- Decimals beyond the library's range are NULL.
select dec_pack(1e200) as pack, dec_round(1e130, 32, 0) as round, dec_format(-1e130, 10, 2) as format,
       cvt(1e200, 'decimal') as cvt, dec_unpack('\xff'::bytea) as unpack;
select dec_round(1, 0, 0);
select dec_pack(1, 65);
