#!/usr/bin/env bash
# The showcase in PostgreSQL: a throw-away cluster with the extension from
# the build, the demo customer table, then every topic of demo/sql (or its
# PostgreSQL version in demo/pg).
#   demo/run_demo_pg.sh BUILD_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../build}" && pwd)
source "$here/../tests/postgres/cluster.sh"
export UDFKIT_DICT_DIR="${UDFKIT_DICT_DIR:-$here/../data}"
pgc_start "$build"
echo "== PostgreSQL $(pgc_psql -Atc 'show server_version'), CREATE EXTENSION udfkit"
pgc_psql -c "create extension udfkit"
{
    # The library's names first: upper, lower, concat, format and convert
    # are PostgreSQL's too.
    echo "set search_path = udfkit, pg_catalog, public;"
    cat "$here/customers.sql"
    # A topic whose queries PostgreSQL runs as written has no file in
    # demo/pg: the SQLite file is used, its dot commands turned into psql's.
    for f in "$here"/sql/*.sql; do
        pg="$here/pg/$(basename "$f")"
        if [ -f "$pg" ]; then
            cat "$pg"
        else
            sed -e 's/^\.print/\\echo/' -e '/^\.mode /d' "$f"
        fi
        echo
    done
} | pgc_psql -P pager=off
