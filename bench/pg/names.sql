-- Finding a customer by a misspelt name, in PostgreSQL: top-1 accuracy
-- (the intended row is the single best-scored one; a tie is a miss) over
-- the labelled set of bench/names_set.hpp (in the tables names and
-- queries), then time per row.
analyze names;
analyze queries;
-- Accuracy of a score (higher is better) over every query and name.
create function top1(score text) returns numeric language plpgsql as $$
declare acc numeric;
begin
  execute format($q$
    with s as (select q.id, q.target, n.id as nid, %s as sc from queries q cross join names n),
    best as (select id, max(sc) as m from s group by id),
    winners as (select s.id, count(*) as tied, bool_or(s.nid = s.target) as hit
                from s join best b on b.id = s.id and s.sc = b.m group by s.id)
    select round(avg((tied = 1 and hit)::int), 3) from winners$q$, score) into acc;
  return acc;
end $$;
set jit = off;
set max_parallel_workers_per_gather = 2;
\pset footer off
select 'fuzzyrank(q, name)' as function, top1('udfkit.fuzzyrank(q.q, n.name)') as top1
union all select 'fuzzysearch(q, name)', top1('udfkit.fuzzysearch(q.q, n.name)')
union all select 'similarity(q, name)', top1('similarity(q.q, n.name)')
union all select 'word_similarity(q, name)', top1('word_similarity(q.q, n.name)')
union all select '-levenshtein(lower(q), lower(name))', top1('-levenshtein(lower(q.q), lower(n.name))');
-- Time per row, serial: each of the first 20 queries against 100,000 names
-- (the 5,000 twenty times), as `order by f(:q, name) desc limit 10` does;
-- the best of :reps runs of each, summed, in backend CPU time.
set max_parallel_workers_per_gather = 0;
create table names_x20 as select n.name from names n, generate_series(1, 20);
create function per_row_us(expr text, reps int) returns numeric language plpgsql as $$
declare total float8 := 0; r record;
begin
  for r in select quote_literal(queries.q) as lit from queries where id <= 20 order by id loop
    total := total + (measure(format('select count(%s) from names_x20', replace(expr, ':q', r.lit)), reps)).cpu;
  end loop;
  return round((1000 * total / (20 * (select count(*) from names_x20)))::numeric, 3);
end $$;
select 'fuzzyrank' as function, per_row_us('udfkit.fuzzyrank(:q, name)', :reps) as cpu_us_per_row
union all select 'fuzzysearch', per_row_us('udfkit.fuzzysearch(:q, name)', :reps)
union all select 'similarity', per_row_us('similarity(:q, name)', :reps)
union all select 'word_similarity', per_row_us('word_similarity(:q, name)', :reps)
union all select 'levenshtein', per_row_us('levenshtein(lower(:q), lower(name))', :reps);
