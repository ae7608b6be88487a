-- The extension's functions live in the schema udfkit.  Six of their names
-- are PostgreSQL's too; pg_catalog is searched first unless the search
-- path names it later.
create extension udfkit;
do $$ begin
  execute format('alter database %I set search_path = public, udfkit', current_database());
end $$;
set search_path = public, udfkit;
select distinct p.proname as also_in_pg_catalog
from pg_proc p
where p.pronamespace = 'udfkit'::regnamespace
  and exists (select 1 from pg_proc q
              where q.pronamespace = 'pg_catalog'::regnamespace and q.proname = p.proname)
order by 1;
-- Way 1: schema-qualified names reach the library, plain ones PostgreSQL.
select upper('déjà') as pg_upper, udfkit.upper('déjà') as udfkit_upper,
       lower('DÉJÀ') as pg_lower, udfkit.lower('DÉJÀ') as udfkit_lower,
       concat(date '2020-12-25', '!') as pg_concat, udfkit.concat(date '2020-12-25', '!') as udfkit_concat,
       format('%s items', 5) as pg_format, udfkit.format('5', '&&&') as udfkit_format;
-- Overloads PostgreSQL does not have reach the library with plain names.
select format(date '2020-12-25', 'dd/mm/yyyy') as date_mask,
       format(1234.5, '###,###.##') as number_mask,
       format('1234.5', '###,###.##') as text_mask,
       strpos('banana', 'n') as pg_strpos, strpos('banana', 'n', 4) as udfkit_strpos,
       encode(convert('é', 'UTF-8', 'ISO-8859-1'), 'hex') as udfkit_convert,
       convert('é'::bytea, 'UTF8', 'LATIN1') as pg_convert;
-- Way 2: udfkit before pg_catalog in the search path.
set search_path = udfkit, pg_catalog, public;
select upper('déjà') as upper, lower('DÉJÀ') as lower, concat(date '2020-12-25', '!') as concat,
       format('1234.5'::text, '###,###.##') as format;
