-- Parallel workers give the same results as a serial scan, under the
-- session's fuzzy settings.
create table notes as
select i as id,
       (array['Jean', 'Marie', 'François', 'Élodie', 'Noël'])[1 + i % 5] || ' ' ||
       (array['Dupont', 'Dupond', 'Lefèvre', 'Martin', 'Rousseau', 'Durand'])[1 + (i / 5) % 6] ||
       ' habite au ' || (i % 97) || ' rue de la ' ||
       (array['Paix', 'Gare', 'Poste', 'République'])[1 + (i / 30) % 4] ||
       '. Rappeler ' || (array['lundi', 'jeudi', 'avant vendredi'])[1 + (i / 7) % 3] || '.' as note
from generate_series(1, 20000) i;
analyze notes;
-- Workers launched by a query, from its plan.
create function workers_launched(query text) returns int language plpgsql as $$
declare line text;
begin
  for line in execute 'explain (analyze, costs off, timing off, summary off) ' || query loop
    if line ~ 'Workers Launched' then
      return substring(line from 'Workers Launched: (\d+)')::int;
    end if;
  end loop;
  return 0;
end $$;
create view every_function as
select id,
       fuzzysearch('dupont jean', note) as search, fuzzyhighlight('dupond paix', note) as highlight,
       fuzzyexcerpt('rappeler jeudi', note, 2, 20) as excerpt, fuzzyrank('jean dupont', note) as rank,
       textquality(note, '', 0) as quality, digramquality(note, '', 1) as digrams,
       udfkit.format(id * 1.5, '###,###.##') as masked,
       udfkit.upper(note) || capitalize(note) || strreplace(note, 'rue', 'RUE') as strings,
       anonymize_letter(note, 'abcdef') || anonymize_email(note) || anonymize_nss(note, '7') as anonymised
from notes;
-- Rows that differ between two tables, both ways.
create function differences(a regclass, b regclass) returns bigint language plpgsql as $$
declare n bigint;
begin
  execute format('select (select count(*) from (table %s except all table %s) x) +
                         (select count(*) from (table %s except all table %s) y)', a, b, b, a) into n;
  return n;
end $$;
select fuzzysetphonex(0);
select fuzzysetspans('[%.2f:', ']');
set max_parallel_workers_per_gather = 0;
create table serial_rows as select * from every_function;
set max_parallel_workers_per_gather = 2;
set force_parallel_mode = on;
set parallel_setup_cost = 0;
set parallel_tuple_cost = 0;
set min_parallel_table_scan_size = 0;
set parallel_leader_participation = off;
-- The functions run in the workers' scan (the leader only gathers), and
-- both workers start.
explain (verbose, costs off)
create table parallel_rows as select id, fuzzysearch('dupont jean', note), fuzzyhighlight('dupond paix', note) from notes;
select workers_launched('create table parallel_rows as select * from every_function') as workers;
select differences('serial_rows', 'parallel_rows') as differences;
-- Settings made after the serial run reach the workers too.
select fuzzysetphonex(1);
select workers_launched('create table parallel_phonetic as select * from every_function') as workers;
set max_parallel_workers_per_gather = 0;
create table serial_phonetic as select * from every_function;
select differences('serial_phonetic', 'parallel_phonetic') as differences,
       differences('serial_phonetic', 'serial_rows') > 0 as settings_matter;
