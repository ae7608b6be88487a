// JSON functions.  They keep state between calls (parsers, node cursors),
// so none is deterministic; the three that push two results are
// table-valued functions of one row.
#include "host/sqlite/bridge.hpp"

namespace {
using udfkit::sqlite::FunctionRow;
using udfkit::sqlite::Kind;

const FunctionRow kRows[] = {
    {"jsonlib_createparser", 1, 1, Kind::Scalar, false},
    {"jsonlib_freeparser", 1, 1, Kind::Scalar, false},
    {"jsonlib_extractobject", 2, 2, Kind::Scalar, false},
    {"jsonlib_getvalue", 1, 1, Kind::Scalar, false},
    {"jsonlib_getkey", 1, 1, Kind::Scalar, false},
    {"jsonlib_getvalue4key", 2, 2, Kind::Scalar, false},
    {"jsonlib_getobject", 1, 1, Kind::Table2, false, "kind", "handle"},
    {"jsonlib_next", 1, 1, Kind::Table2, false, "kind", "handle"},
    {"jsonlib_getkeyvalue", 1, 1, Kind::Table2, false, "key", "value"},
};
const udfkit::sqlite::RowBlock kBlock(kRows, sizeof kRows / sizeof kRows[0]);
}  // namespace
