// Catalogue introspection: the statements run on the calling connection,
// against its systypes and syscolattr tables.
#include "host/sqlite/bridge.hpp"

namespace {
using udfkit::sqlite::FunctionRow;
using udfkit::sqlite::Kind;

const FunctionRow kRows[] = {
    {"coltype2string", 2, 2, Kind::Scalar, false},
    {"coltype2null", 1, 1},
    {"colattribute", 3, 3, Kind::Scalar, false},
    {"colattributes", 2, 2, Kind::Scalar, false},
};
const udfkit::sqlite::RowBlock kBlock(kRows, sizeof kRows / sizeof kRows[0]);
}  // namespace
