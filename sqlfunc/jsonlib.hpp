// Internal constants of the JSON parser and the JSON SQL functions.
#pragma once

#include <cstdint>
#include <cstring>

#include "udfkit/json.h"

namespace udfkit::json {

// Deepest nesting of arrays and objects the parser accepts.  The parser
// recurses once per level; beyond this it stops with the error line
// "nesting too deep" (check number kDepthCheck) instead of exhausting the
// stack of the host's thread.
constexpr int kMaxDepth = 1000;
constexpr int kDepthCheck = 264;

// Number of parser slots (parser numbers 0 to kParserSlots - 1).
constexpr int kParserSlots = 100;

// The nodes a thread creates, carved zero-filled from its current block
// (jsonnodes.cpp).  A parse takes its thread's carver once and passes it
// down.
class NodeCarver {
public:
    NodeCarver() = default;
    NodeCarver(const NodeCarver &) = delete;
    NodeCarver &operator=(const NodeCarver &) = delete;
    ~NodeCarver() { retire(); }

    JsonNode *take() { return next_ != end_ ? carve() : refill(); }

private:
    JsonNode *carve() {
        JsonNode *js = next_++;
#if defined(__SANITIZE_ADDRESS__)
        unpoison(js);
#endif
        std::memset(static_cast<void *>(js), 0, sizeof *js);
        return js;
    }
    JsonNode *refill();
    void retire();
    static void unpoison(JsonNode *js);

    void *block_ = nullptr;
    JsonNode *next_ = nullptr;
    JsonNode *end_ = nullptr;
};

NodeCarver &thread_carver();

// nx_json_free of a node that is not null.
void free_tree(JsonNode *node);

}  // namespace udfkit::json
