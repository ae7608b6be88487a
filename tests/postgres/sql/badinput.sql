-- Hostile input: every function with every argument NULL, empty, 1.5 MB
-- long, full of characters U+0080-U+00FF, at the ends of its type's range.
-- Each call gives a result or a PostgreSQL error, never a crash (the test
-- driver checks that the server did not restart).
\pset null '<null>'
-- Sample values per argument type, the first one the ordinary value.
create table samples as
select type::regtype, value, ord - 1 as ord
from (values
  ('text', array['''dupont jean''', 'NULL', '''''', 'repeat(''é dupont '', 150000)',
                 '(select string_agg(chr(c), '''') from generate_series(128, 255) c)',
                 '''%s%n%x%99999999d''']),
  ('integer', array['3', 'NULL', '-2147483648', '2147483647', '-1', '0']),
  ('bigint', array['549755813890', 'NULL', '9223372036854775807', '-1']),
  ('double precision', array['0.5', 'NULL', '''NaN''', '''-Infinity''', '-1e308', '5e-324']),
  ('date', array['date ''2020-12-25''', 'NULL', '''infinity''', 'date ''4713-01-01 BC''',
                 'date ''5874897-12-31''']),
  ('timestamp with time zone', array['timestamptz ''2020-12-25 13:45+00''', 'NULL', '''-infinity''',
                                     'timestamptz ''294276-12-31 23:59+00''']),
  ('numeric', array['1234.5', 'NULL', '''NaN''', '1e200', '-1e-200']),
  ('bytea', array['''\xc3a9''', 'NULL', '''\x''', '''\xff00ee''']),
  ('"any"', array['''x''', 'NULL::text', 'repeat(''x'', 1500000)', '-1e308::float8', 'date ''infinity''']),
  ('double precision[]', array['array[1.5, 2]::float8[]', 'array[null, ''NaN'']::float8[]', 'NULL'])
) t(type, vals), unnest(vals) with ordinality u(value, ord);
-- Calls each function with one argument at a time taking each of its
-- type's samples (the others ordinary), then with every argument NULL;
-- returns how many calls each made and the start of the errors they
-- raised.  A text result that is not UTF-8 is an error too; which inputs
-- give one depends on the library's functions, not on this host, so those
-- errors are left out here.
create function exercise()
returns table (fn text, calls int, errors text) language plpgsql as $$
declare
  f record; i int; s record; args text[]; n int; errs text[]; msg text; last int;
begin
  for f in select p.proname, p.proargtypes::regtype[] as types
           from pg_proc p where p.pronamespace = 'udfkit'::regnamespace and p.prokind = 'f'
           order by p.proname, p.oid loop
    n := 0; errs := '{}';
    last := coalesce(array_upper(f.types, 1), -1);
    for i in 0 .. last + 1 loop
      for s in select value from samples
               where i <= last and type = f.types[i]
               union all select 'ALLNULL' where i = last + 1 loop
        args := array(select case when s.value = 'ALLNULL' then 'NULL::' || f.types[k]::text
                                  when k = i then s.value
                                  else (select value from samples where type = f.types[k] and ord = 0) end
                      from generate_series(0, last) k order by k);
        if f.types[last]::text like '%[]' then
          args[last + 1] := 'variadic ' || args[last + 1];
        end if;
        n := n + 1;
        begin
          execute format('select udfkit.%I(%s)::text', f.proname, array_to_string(args, ', '));
        exception when others then
          msg := left(regexp_replace(sqlerrm, '"[^"]*"', '"..."', 'g'), 60);
          if sqlerrm not like '%not valid UTF-8' and not msg = any(errs) then
            errs := errs || msg;
          end if;
        end;
      end loop;
    end loop;
    return query select f.proname || '(' || array_to_string(f.types::text[], ', ') || ')', n,
                        nullif(array_to_string(errs, ' | '), '');
  end loop;
end $$;
create temp table exercised as select * from exercise();
select count(*) > 60 as every_function_called, sum(calls) > 600 as calls from exercised;
select fn, errors from exercised where errors is not null order by fn;
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
