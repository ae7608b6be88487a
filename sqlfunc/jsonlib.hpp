// Internal constants of the JSON parser and the JSON SQL functions.
#pragma once

#include <cstdint>

namespace udfkit::json {

// Deepest nesting of arrays and objects the parser accepts.  The parser
// recurses once per level; beyond this it stops with the error line
// "nesting too deep" (check number kDepthCheck) instead of exhausting the
// stack of the host's thread.
constexpr int kMaxDepth = 1000;
constexpr int kDepthCheck = 264;

// Number of parser slots (parser numbers 0 to kParserSlots - 1).
constexpr int kParserSlots = 100;

}  // namespace udfkit::json
