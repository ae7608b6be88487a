// String functions, typed empty columns, numeric extremes, list matching.
#include "host/sqlite/bridge.hpp"

namespace {
using udfkit::sqlite::FunctionRow;
using udfkit::sqlite::Kind;

const FunctionRow kRows[] = {
    {"capitalize", 1, 1},
    {"upper", 1, 1},
    {"lower", 1, 1},
    {"basename", 1, 1},
    {"lastchars", 2, 2},
    {"strpos", 3, 3},
    {"valascii", 1, 1},
    {"strreplace", 3, 3},
    {"merge", 0, -1},
    {"concat", 0, -1},
    {"champ", 3, 3},
    {"group_concat", 2, 2, Kind::Aggregate},
    {"charcolumn", 1, 1},
    {"vcharcolumn", 1, 1},
    {"datecolumn", 0, 0},
    {"datetimecolumn", 0, 0},
    {"intcolumn", 0, 0},
    {"minx", 1, -1},
    {"maxx", 1, -1},
    {"list_matches", 3, 3},
};
const udfkit::sqlite::RowBlock kBlock(kRows, sizeof kRows / sizeof kRows[0]);
}  // namespace
