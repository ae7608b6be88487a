#!/usr/bin/env bash
# The PostgreSQL tests: a throw-away cluster with the extension from the
# build, the regression files of sql/ against expected/ (pg_regress), the
# same examples through SQLite and PostgreSQL, and a check that no backend
# crashed (a crash restarts the server, which changes its start time and
# leaves its mark in the log).  The cluster is removed also on failure.
#   run_tests.sh BUILD_DIR SOURCE_DIR [SQLITE_EXTENSION]
set -euo pipefail
build=$(cd "$1" && pwd)
src=$(cd "$2" && pwd)
sqlite_ext=${3:-}
here=$src/tests/postgres
pg_regress=$(pg_config --pkglibdir)/pgxs/src/test/regress/pg_regress

source "$here/cluster.sh"
export UDFKIT_DICT_DIR=$src/data TZ=UTC
unset DBDATE DBDATETIME DBTODAY
pgc_start "$build"

started=$(pgc_psql -Atc "select pg_postmaster_start_time()")
status=0
out=$PGC_DIR/regress
mkdir -p "$out"
pgc_psql -c "create database udfkit_regress"
"$pg_regress" --use-existing --bindir="$PGC_BINDIR" --host="$PGHOST" --port="$PGPORT" \
    --user=postgres --dbname=udfkit_regress --inputdir="$here" --outputdir="$out" \
    names values catalogue settings parallel remote badinput || {
    status=1
    [ -f "$out/regression.diffs" ] && head -n 300 "$out/regression.diffs"
    rm -rf "$build/postgres/regress"
    cp -r "$out" "$build/postgres/regress"
    echo "results and diffs kept in $build/postgres/regress"
}

if [ -n "$sqlite_ext" ] && [ -f "$sqlite_ext" ]; then
    pgc_psql -c "create database udfkit_same" -c "\\c udfkit_same" -c "create extension udfkit"
    PGDATABASE=udfkit_same /usr/bin/python3 "$here/same_as_sqlite.py" "${sqlite_ext%.so}" \
        "$PGC_BINDIR/psql" || status=1
fi

now=$(pgc_psql -Atc "select pg_postmaster_start_time()")
if [ "$now" != "$started" ] || grep -Eq 'terminated by signal|was terminated|PANIC' "$PGC_DIR/server.log"; then
    echo "the server restarted: a backend crashed"
    grep -E 'terminated|PANIC|FATAL' "$PGC_DIR/server.log" | head -n 20
    status=1
fi
[ "$status" -eq 0 ] && echo "postgresql: all tests passed"
exit "$status"
