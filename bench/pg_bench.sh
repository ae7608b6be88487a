#!/usr/bin/env bash
# The PostgreSQL benchmark: a throw-away cluster with the extension from the
# build, pg_trgm and fuzzystrmatch; ROWS French notes (default 1,000,000)
# timed server-side against PostgreSQL's own functions, the same scan with
# two parallel workers, then the name-search set of bench_names.
#   bench/pg_bench.sh BUILD_DIR [ROWS] [REPS]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../build}" && pwd)
rows=${2:-1000000}
reps=${3:-3}
source "$here/../tests/postgres/cluster.sh"
export UDFKIT_DICT_DIR="$here/../data"
export PGC_EXTRA_CONF="shared_buffers = 512MB
max_parallel_workers_per_gather = 2"
pgc_start "$build"
work=$PGC_DIR/bench
mkdir -p "$work"
chmod 755 "$work"
# Dictionaries: NAME|anything, one per line.
cut -d'|' -f1 "$here/../data/dict.prenom.masculin.txt" "$here/../data/dict.prenom.feminin.txt" |
    sort -u >"$work/first_names.txt"
cut -d'|' -f1 "$here/../data/dict.nom.txt" | sort -u >"$work/surnames.txt"
"$build/bench_names" --dump "$work"
echo "== PostgreSQL $(pgc_psql -Atc 'show server_version'), $(nproc) cores, load average $(cut -d' ' -f1-3 /proc/loadavg)"
pgc_psql -P pager=off -v rows="$rows" -v reps="$reps" <<SQL
create extension udfkit;
create extension pg_trgm;
create extension fuzzystrmatch;
create table first_names (name text);
create table surnames (name text);
\\copy first_names from '$work/first_names.txt'
\\copy surnames from '$work/surnames.txt'
create table names (id int primary key, name text);
create table queries (id int primary key, q text, target int);
\\copy names from '$work/names.tsv'
\\copy queries from '$work/queries.tsv'
\\echo == notes
\\i $here/pg/notes.sql
\\echo == time per row over the notes
\\i $here/pg/timing.sql
\\echo == searching names
\\i $here/pg/names.sql
SQL
echo "load average after the run $(cut -d' ' -f1-3 /proc/loadavg)"
