#!/usr/bin/env bash
# Installs the build into a scratch root and builds a C host against the
# installed library with pkg-config; then loads the installed extension
# into SQLite from Python.
set -euo pipefail
build=$1
src=$2
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
DESTDIR="$root" cmake --install "$build" --prefix /usr/local >/dev/null
export PKG_CONFIG_PATH="$root/usr/local/lib/pkgconfig" PKG_CONFIG_SYSROOT_DIR="$root"
flags=$(pkg-config --cflags --libs udfkit)
cc -std=c11 -Wall -Werror -o "$root/host" "$src/tests/abi_c.c" $flags -Wl,-rpath,"$root/usr/local/lib"
"$root/host"
ext=$(find "$root/usr/local/lib" -name 'udfkit_sqlite.so' | head -n 1)
[ -n "$ext" ] || { echo "extension not installed"; exit 1; }
python=/usr/bin/python3
[ -x "$python" ] || python=python3
"$python" - "$ext" <<'PY'
import sqlite3, sys
db = sqlite3.connect(":memory:")
db.enable_load_extension(True)
db.load_extension(sys.argv[1][:-3])
got = db.execute("select capitalize('hello WORLD'), strpos('banana', 'n', 4)").fetchone()
assert got == ("Hello world", 5), got
print("python: 1 passed, 0 failed")
PY
