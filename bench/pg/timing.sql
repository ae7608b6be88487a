-- Server-side time per row of each query over bench_notes, serial unless
-- said: the best of :reps runs, in wall-clock time (EXPLAIN ANALYZE) and in
-- the CPU time of the backend (/proc/self/stat, 10 ms ticks), which other
-- processes on a loaded machine do not inflate.
create function cpu_ms() returns float8 language sql as $$
  select (split_part(s, ' ', 12)::float8 + split_part(s, ' ', 13)::float8) * 10
  from (select substr(t, strpos(t, ') ') + 2) as s from pg_read_file('/proc/self/stat') t) x
$$;
create function measure(query text, reps int, out wall float8, out cpu float8)
language plpgsql as $$
declare line text; ms float8; c0 float8;
begin
  wall := 'infinity';
  cpu := 'infinity';
  for r in 1 .. reps loop
    c0 := cpu_ms();
    for line in execute 'explain (analyze, timing off, summary on) ' || query loop
      if line like 'Execution Time:%' then
        ms := substring(line from '([0-9.]+) ms')::float8;
      end if;
    end loop;
    cpu := least(cpu, cpu_ms() - c0);
    wall := least(wall, ms);
  end loop;
end $$;
create function workers(query text) returns int language plpgsql as $$
declare line text;
begin
  for line in execute 'explain (analyze, timing off, summary off) ' || query loop
    if line ~ 'Workers Launched' then
      return substring(line from 'Workers Launched: (\d+)')::int;
    end if;
  end loop;
  return 0;
end $$;
create temp table timings (label text, wall float8, cpu float8, rows bigint);
set jit = off;
set max_parallel_workers_per_gather = 0;
select count(*) as rows from bench_notes \gset
insert into timings select 'scan: count(notes)', (measure('select count(notes) from bench_notes', :reps)).*, :rows;
insert into timings select 'pg_catalog.upper', (measure('select count(pg_catalog.upper(notes)) from bench_notes', :reps)).*, :rows;
insert into timings select 'udfkit.upper', (measure('select count(udfkit.upper(notes)) from bench_notes', :reps)).*, :rows;
insert into timings select 'fuzzysearch(''dupont jean'', notes)',
  (measure('select count(udfkit.fuzzysearch(''dupont jean'', notes)) from bench_notes', :reps)).*, :rows;
insert into timings select 'fuzzyrank(''dupont jean'', notes)',
  (measure('select count(udfkit.fuzzyrank(''dupont jean'', notes)) from bench_notes', :reps)).*, :rows;
insert into timings select 'similarity(''dupont jean'', notes)',
  (measure('select count(similarity(''dupont jean'', notes)) from bench_notes', :reps)).*, :rows;
insert into timings select 'word_similarity(''dupont'', notes)',
  (measure('select count(word_similarity(''dupont'', notes)) from bench_notes', :reps)).*, :rows;
insert into timings select 'levenshtein(''dupont jean'', left(notes, 255))',
  (measure('select count(levenshtein(''dupont jean'', left(notes, 255))) from bench_notes', :reps)).*, :rows;
-- The same fuzzysearch scan with two parallel workers (the leader only
-- gathers), and the check that both give the same scores.
select sum(hashtext(udfkit.fuzzysearch('dupont jean', notes)::text)::bigint) as serial_hash,
       count(*) filter (where udfkit.fuzzysearch('dupont jean', notes) > 0.5) as serial_matches
from bench_notes \gset
set max_parallel_workers_per_gather = 2;
set parallel_leader_participation = off;
set parallel_setup_cost = 0;
set parallel_tuple_cost = 0;
set min_parallel_table_scan_size = 0;
insert into timings select 'fuzzysearch, 2 workers',
  (measure('select count(udfkit.fuzzysearch(''dupont jean'', notes)) from bench_notes', :reps)).*, :rows;
select workers('select count(udfkit.fuzzysearch(''dupont jean'', notes)) from bench_notes') as workers_launched;
select sum(hashtext(udfkit.fuzzysearch('dupont jean', notes)::text)::bigint) = :serial_hash
         as same_scores,
       count(*) filter (where udfkit.fuzzysearch('dupont jean', notes) > 0.5) = :serial_matches
         as same_matches
from bench_notes;
\pset footer off
select label, round(wall::numeric, 0) as wall_ms, round((1000 * wall / rows)::numeric, 3) as wall_us_per_row,
       round(cpu::numeric, 0) as cpu_ms, round((1000 * cpu / rows)::numeric, 3) as cpu_us_per_row
from timings;
create function ratio(a text, b text, use_cpu bool) returns numeric language sql as $$
  select round((select case when use_cpu then t.cpu else t.wall end from timings t where label like a)::numeric /
               (select case when use_cpu then t.cpu else t.wall end from timings t where label like b)::numeric, 3)
$$;
select 'cpu' as time, ratio('udfkit.upper', 'pg_catalog.upper', true) as upper_ratio,
       ratio('fuzzysearch(%', 'similarity%', true) as vs_similarity,
       ratio('fuzzysearch(%', 'word_similarity%', true) as vs_word_similarity,
       ratio('fuzzysearch(%', 'levenshtein%', true) as vs_levenshtein
union all
select 'wall', ratio('udfkit.upper', 'pg_catalog.upper', false), ratio('fuzzysearch(%', 'similarity%', false),
       ratio('fuzzysearch(%', 'word_similarity%', false), ratio('fuzzysearch(%', 'levenshtein%', false);
select ratio('fuzzysearch(%', 'fuzzysearch, 2%', false) as parallel_speedup_wall;
