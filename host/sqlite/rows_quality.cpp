// Text quality scores.
#include "host/sqlite/bridge.hpp"

namespace {
using udfkit::sqlite::FunctionRow;

const FunctionRow kRows[] = {
    {"freqquality", 3, 3},
    {"digramquality", 3, 3},
    {"textquality", 3, 3},
};
const udfkit::sqlite::RowBlock kBlock(kRows, sizeof kRows / sizeof kRows[0]);
}  // namespace
