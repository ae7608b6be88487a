#!/usr/bin/env bash
# Builds the demo database and runs the showcase with the extension loaded.
#   demo/run_demo.sh BUILD_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../build}" && pwd)
db="$build/demo.db"
rm -f "$db"
export UDFKIT_DICT_DIR="${UDFKIT_DICT_DIR:-$here/../data}"
{
    echo ".load $build/udfkit_sqlite"
    cat "$here/customers.sql"
    for f in "$here"/sql/*.sql; do cat "$f"; echo; done
} | sqlite3 -bail "$db"
