# A throw-away PostgreSQL cluster with the extension installed, for the
# tests, the demo and the benchmark.  Source it, then:
#   pgc_start BUILD_DIR   a private installation (the server's files linked,
#                         the extension from BUILD_DIR), initdb into a temporary
#                         folder, the server on a Unix socket there only;
#                         exports PGHOST, PGPORT, PGUSER, PGDATABASE, PGC_DIR
#   pgc_psql ARGS...      psql on the cluster
#   pgc_stop              stop the server, remove everything (also on exit)
# PGC_EXTRA_CONF is appended to the server's configuration; PGC_SERVER_ENV
# (NAME=value ...) goes to the server's environment only (e.g. LD_PRELOAD of
# a sanitizer runtime).  As root, the server runs as the system user
# `udfkit` (created when missing; `nobody` if that fails).  The server's
# environment (TZ, UTC unless set; DBDATE, DBDATETIME, DBTODAY,
# UDFKIT_DICT_DIR) decides the library's settings.

PGC_BINDIR=$(pg_config --bindir)
PGC_PKGLIBDIR=$(pg_config --pkglibdir)
PGC_SHAREDIR=$(pg_config --sharedir)
PGC_DIR=""
PGC_RUNAS=""

pgc_as_server() {
    if [ -n "$PGC_RUNAS" ]; then
        setpriv --reuid="$PGC_RUNAS" --regid="$(id -g "$PGC_RUNAS")" --init-groups "$@"
    else
        "$@"
    fi
}

pgc_pick_user() {
    [ "$(id -u)" -eq 0 ] || return 0
    id udfkit >/dev/null 2>&1 ||
        useradd --system --no-create-home --shell /usr/sbin/nologin udfkit >/dev/null 2>&1 || true
    if id udfkit >/dev/null 2>&1; then PGC_RUNAS=udfkit; else PGC_RUNAS=nobody; fi
}

# Links every file of $1 into $2, except the extension's own files.
pgc_link_dir() {
    mkdir -p "$2"
    local f
    for f in "$1"/*; do
        case "$(basename "$f")" in udfkit.so | udfkit.control | udfkit--*) continue ;; esac
        ln -s "$f" "$2/"
    done
}

# A private installation: the server finds its library and share folders
# relative to its own executable, so a copy of the binaries next to
# linked folders is a complete installation that holds our extension.
pgc_stage() {
    local build=$1 stage=$PGC_DIR/stage
    mkdir -p "$stage$PGC_BINDIR"
    local b
    for b in postgres initdb pg_ctl; do
        ln "$PGC_BINDIR/$b" "$stage$PGC_BINDIR/$b" 2>/dev/null || cp "$PGC_BINDIR/$b" "$stage$PGC_BINDIR/$b"
    done
    pgc_link_dir "$PGC_PKGLIBDIR" "$stage$PGC_PKGLIBDIR"
    mkdir -p "$stage$PGC_SHAREDIR"
    for b in "$PGC_SHAREDIR"/*; do
        [ "$(basename "$b")" = extension ] || ln -s "$b" "$stage$PGC_SHAREDIR/"
    done
    pgc_link_dir "$PGC_SHAREDIR/extension" "$stage$PGC_SHAREDIR/extension"
    DESTDIR="$stage" cmake --install "$build" --component postgresql >/dev/null
    [ -f "$stage$PGC_PKGLIBDIR/udfkit.so" ] || { echo "cluster: the build has no PostgreSQL extension" >&2; return 1; }
    PGC_STAGE_BIN=$stage$PGC_BINDIR
}

pgc_start() {
    local build=$1
    PGC_DIR=$(mktemp -d /tmp/udfkit-pg.XXXXXX)
    chmod 755 "$PGC_DIR"
    trap pgc_stop EXIT
    trap 'exit 130' INT TERM
    pgc_pick_user
    pgc_stage "$build" || return 1
    mkdir -p "$PGC_DIR/data" "$PGC_DIR/sock"
    [ -z "$PGC_RUNAS" ] || chown "$PGC_RUNAS" "$PGC_DIR/data" "$PGC_DIR/sock" "$PGC_DIR"
    pgc_as_server "$PGC_STAGE_BIN/initdb" -D "$PGC_DIR/data" -U postgres -E UTF8 --locale=C.UTF-8 \
        --auth=trust -N >"$PGC_DIR/initdb.log" 2>&1 || { cat "$PGC_DIR/initdb.log" >&2; return 1; }
    # Only the socket in our folder listens, so any port is free there;
    # a random one keeps the socket name apart from a default server's.
    PGPORT=$((20000 + RANDOM % 40000))
    cat >>"$PGC_DIR/data/postgresql.conf" <<EOF
listen_addresses = ''
unix_socket_directories = '$PGC_DIR/sock'
port = $PGPORT
fsync = off
synchronous_commit = off
full_page_writes = off
max_worker_processes = 8
max_parallel_workers = 8
max_parallel_workers_per_gather = 2
log_min_messages = warning
${PGC_EXTRA_CONF:-}
EOF
    TZ=${TZ:-UTC} pgc_as_server env ${PGC_SERVER_ENV:-} "$PGC_STAGE_BIN/pg_ctl" -D "$PGC_DIR/data" -l "$PGC_DIR/server.log" \
        -w -t 60 start >/dev/null || { cat "$PGC_DIR/server.log" >&2; return 1; }
    export PGHOST=$PGC_DIR/sock PGPORT PGUSER=postgres PGDATABASE=postgres PGC_DIR
}

pgc_psql() { "$PGC_BINDIR/psql" -X -v ON_ERROR_STOP=1 -q "$@"; }

pgc_stop() {
    [ -n "$PGC_DIR" ] && [ -d "$PGC_DIR" ] || return 0
    [ ! -f "$PGC_DIR/data/postmaster.pid" ] ||
        pgc_as_server "$PGC_STAGE_BIN/pg_ctl" -D "$PGC_DIR/data" -m immediate -w stop >/dev/null 2>&1 || true
    rm -rf "$PGC_DIR"
    PGC_DIR=""
}
