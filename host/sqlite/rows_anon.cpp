// Anonymisation: every function seeds its generator from its own input, so
// the same input always gives the same output.
#include "host/sqlite/bridge.hpp"

namespace {
using udfkit::sqlite::FunctionRow;

const FunctionRow kRows[] = {
    {"anonymize_first", 2, 2},
    {"anonymize_last", 1, 1},
    {"anonymize_letter", 2, 2},
    {"anonymize_nss", 2, 2},
    {"anonymize_email", 1, 1},
};
const udfkit::sqlite::RowBlock kBlock(kRows, sizeof kRows / sizeof kRows[0]);
}  // namespace
