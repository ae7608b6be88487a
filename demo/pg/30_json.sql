\echo
\echo '== JSON: parse each profile once, then read it by path'
create temp table parsed as
  select id, firstname, jsonlib_createparser(profile) as p from customers;
select firstname,
       jsonlib_extractobject(p, '$.name')             as name,
       jsonlib_extractobject(p, '$.tags[0]')          as first_tag,
       jsonlib_extractobject(p, '$.orders[0].ref')    as first_order,
       jsonlib_extractobject(p, '$.orders[0].amount') as amount,
       jsonlib_extractobject(p, '$.active')           as active,
       jsonlib_extractobject(p, '$.note')             as note
from parsed order by id;

\echo '-- walk the members of customer 1''s document, node by node'
-- PostgreSQL calls a function in FROM again only for new arguments: the
-- walk carries the root handle so that each step calls jsonlib_next.
with recursive
  root(h) as (select handle from parsed, jsonlib_getobject(parsed.p) where parsed.id = 1),
  walk(n, kind, h, r) as (
    select 1, x.kind, x.handle, root.h from root, jsonlib_next(root.h) x
    union all
    select walk.n + 1, x.kind, x.handle, walk.r from walk, jsonlib_next(walk.r) x
    where walk.kind is not null)
select n, kind, jsonlib_getkey(h) as member,
       case kind when 'V' then jsonlib_getvalue(h) else '(' || kind || ')' end as value
from walk where kind is not null;

\echo '-- members by name from a node handle, and an order''s fields'
select firstname,
       jsonlib_getvalue4key((select handle from jsonlib_getobject(p)), 'active') as active,
       kv.key, kv.value
from parsed, jsonlib_getkeyvalue(jsonlib_getvalue(jsonlib_extractobject(p, '$.orders'))) kv
where parsed.id in (1, 4) order by parsed.id;

select count(*) as freed from (select jsonlib_freeparser(p) from parsed) s;
drop table parsed;
