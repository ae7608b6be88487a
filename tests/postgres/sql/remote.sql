-- Another node: a second database of this cluster reached through
-- postgres_fdw, with the extension installed there too and named in the
-- foreign server's options.  Immutable functions (those that depend on
-- their arguments alone) are shipped to the node; the others run here, on
-- the rows the node sends.
\getenv host PGHOST
\getenv port PGPORT
\set here :DBNAME
create database udfkit_node;
\c udfkit_node
create extension udfkit;
create table notes (id int, name text, note text);
insert into notes values
  (1, 'Jean Dupont', 'M. Dupond habite au 12 rue de la Paix.'),
  (2, 'Marie Lefèvre', 'Madame Lefèvre préfère le courriel.'),
  (3, 'François Martin', 'Retard de livraison; geste commercial.');
\c :here
create extension postgres_fdw;
\set ECHO none
select format('create server node foreign data wrapper postgres_fdw
               options (host %L, port %L, dbname %L, extensions %L)',
              :'host', :'port', 'udfkit_node', 'udfkit') \gexec
\set ECHO all
create user mapping for current_user server node options (user 'postgres');
create foreign table remote_notes (id int, name text, note text) server node options (table_name 'notes');
-- Shipped: the immutable functions of the WHERE clause.
explain (verbose, costs off)
select id, udfkit.fuzzyrank('jean dupond', name), udfkit.anonymize_letter(note, 'abc')
from remote_notes where udfkit.fuzzyrank('jean dupond', name) > 0.5;
select id, round(udfkit.fuzzyrank('jean dupond', name)::numeric, 3) as rank,
       udfkit.anonymize_letter(note, 'abc') as masked
from remote_notes where udfkit.fuzzyrank('jean dupond', name) > 0.5;
-- Kept here: functions that read the session's settings, parser numbers
-- and the catalogue lookups.
explain (verbose, costs off)
select id, udfkit.fuzzyhighlight('dupont paix', note), udfkit.jsonlib_createparser(note)
from remote_notes where udfkit.fuzzysearch('dupont', note) > 0.5;
select id, udfkit.fuzzyhighlight('dupont paix', note) as highlight
from remote_notes where udfkit.fuzzysearch('dupont', note) > 0.5;
