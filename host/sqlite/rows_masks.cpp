// Picture masks.  SQLite has a variadic format() of its own; registering
// ours with exactly two arguments makes it the one two-argument calls reach.
#include "host/sqlite/bridge.hpp"

namespace {
using udfkit::sqlite::FunctionRow;

const FunctionRow kRows[] = {
    {"format", 2, 2},
};
const udfkit::sqlite::RowBlock kBlock(kRows, sizeof kRows / sizeof kRows[0]);
}  // namespace
