// Where the parser's nodes come from and how they go back.
//
// Nodes are carved, zero-filled, from 64 KiB blocks aligned on their size,
// each thread carving from a block of its own.  A block counts its nodes
// still alive; nx_json_free gives nodes back one by one (any subtree, in
// any order, from any thread) and the block is released with its last
// node.  A node that nx_json_free meets and that lies in no block (a
// parent the caller allocated itself, or a node made while no block could
// be had) goes back to the C library's free.  A block stays as long as
// one of its nodes does: a long-lived tree holds at most the blocks its
// nodes lie in, and the partly carved block of a thread goes back when
// the thread ends.
//
// Which addresses are blocks is kept in a two-level bitmap, one bit per
// possible block position, filled and read with atomic operations.
#include <errno.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "sqlfunc/jsonlib.hpp"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define UDFKIT_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define UDFKIT_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define UDFKIT_POISON(p, n) ((void)(p), (void)(n))
#define UDFKIT_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace udfkit::json {

namespace {

constexpr int kBlockShift = 16;
constexpr uintptr_t kBlockBytes = uintptr_t{1} << kBlockShift;

struct alignas(64) BlockHeader {
    // Nodes not yet given back, plus every node the carving thread has not
    // carved yet, plus one while a thread carves from the block.
    std::atomic<int64_t> live;
};

constexpr size_t kNodesPerBlock = (kBlockBytes - sizeof(BlockHeader)) / sizeof(JsonNode);

// Block positions: a block's address (of up to 47 bits) over the block
// size, split into leaves of 2^18 bits.  A block at an address beyond
// that is not used.
constexpr int kLeafBits = 18;
constexpr size_t kLeaves = size_t{1} << (47 - kBlockShift - kLeafBits);
constexpr size_t kLeafWords = (size_t{1} << kLeafBits) / 64;

std::atomic<std::atomic<uint64_t> *> g_leaves[kLeaves];

std::atomic<uint64_t> *leaf_of(uintptr_t number, bool create) {
    const size_t i = number >> kLeafBits;
    if (i >= kLeaves) return nullptr;
    std::atomic<uint64_t> *leaf = g_leaves[i].load(std::memory_order_acquire);
    if (leaf || !create) return leaf;
    auto *fresh = new (std::nothrow) std::atomic<uint64_t>[kLeafWords]();
    if (!fresh) return nullptr;
    if (g_leaves[i].compare_exchange_strong(leaf, fresh, std::memory_order_acq_rel)) return fresh;
    delete[] fresh;  // another thread installed the leaf first
    return leaf;
}

bool mark_block(uintptr_t base) {
    const uintptr_t number = base >> kBlockShift;
    std::atomic<uint64_t> *leaf = leaf_of(number, true);
    if (!leaf) return false;
    const uintptr_t bit = number & ((uintptr_t{1} << kLeafBits) - 1);
    leaf[bit / 64].fetch_or(uint64_t{1} << (bit % 64), std::memory_order_release);
    return true;
}

void unmark_block(uintptr_t base) {
    const uintptr_t number = base >> kBlockShift;
    std::atomic<uint64_t> *leaf = leaf_of(number, false);
    const uintptr_t bit = number & ((uintptr_t{1} << kLeafBits) - 1);
    leaf[bit / 64].fetch_and(~(uint64_t{1} << (bit % 64)), std::memory_order_release);
}

bool is_block(uintptr_t base) {
    const uintptr_t number = base >> kBlockShift;
    const std::atomic<uint64_t> *leaf = leaf_of(number, false);
    if (!leaf) return false;
    const uintptr_t bit = number & ((uintptr_t{1} << kLeafBits) - 1);
    return (leaf[bit / 64].load(std::memory_order_acquire) >> (bit % 64)) & 1;
}

// Out of memory ends the process with the failed-assertion line of the
// C library, in every build: written out here so that NDEBUG cannot turn
// the stop off.
[[noreturn, gnu::cold, gnu::noinline]] void out_of_memory() {
    std::fprintf(stderr, "%s: %s:%d: %s: Assertion `%s' failed.\n",
                 program_invocation_short_name, __FILE__, 71, "create_json", "js");
    std::abort();
}

void release_block(BlockHeader *b) {
    unmark_block(reinterpret_cast<uintptr_t>(b));
    b->~BlockHeader();
    UDFKIT_UNPOISON(b, kBlockBytes);
    std::free(b);
}

// Gives back n nodes (or reservations) of block b.
void drop(BlockHeader *b, int64_t n) {
    if (n && b->live.fetch_sub(n, std::memory_order_acq_rel) == n) release_block(b);
}

}  // namespace

JsonNode *NodeCarver::refill() {
    retire();
    void *mem = std::aligned_alloc(kBlockBytes, kBlockBytes);
    if (mem && !mark_block(reinterpret_cast<uintptr_t>(mem))) {
        std::free(mem);
        mem = nullptr;
    }
    if (!mem) {
        // No block: this node is an allocation of its own.
        auto *js = static_cast<JsonNode *>(std::calloc(1, sizeof(JsonNode)));
        if (!js) out_of_memory();
        return js;
    }
    auto *b = new (mem) BlockHeader{};
    b->live.store(static_cast<int64_t>(kNodesPerBlock) + 1, std::memory_order_relaxed);
    block_ = b;
    next_ = reinterpret_cast<JsonNode *>(static_cast<char *>(mem) + sizeof(BlockHeader));
    end_ = next_ + kNodesPerBlock;
    UDFKIT_POISON(next_, kNodesPerBlock * sizeof(JsonNode));
    return carve();
}

void NodeCarver::unpoison(JsonNode *js) { UDFKIT_UNPOISON(js, sizeof *js); }

void NodeCarver::retire() {
    if (!block_) return;
    drop(static_cast<BlockHeader *>(block_), (end_ - next_) + 1);
    block_ = nullptr;
    next_ = end_ = nullptr;
}

NodeCarver &thread_carver() {
    static thread_local NodeCarver carver;
    return carver;
}

void free_tree(JsonNode *node) {
    // Iterative, children before their parent's memory is gone: each freed
    // container splices its children in front of the pending list, so any
    // depth is freed without recursion.  Nodes of one block mostly come in
    // a row (they were carved in document order) and are given back to it
    // together.
    node->next = nullptr;  // the node's own siblings are not freed
    JsonNode *pending = node;
    BlockHeader *run = nullptr;
    int64_t run_length = 0;
    while (pending) {
        JsonNode *js = pending;
        pending = js->next;
        if ((js->kind == JSON_OBJECT || js->kind == JSON_ARRAY) && js->v2.child) {
            JsonNode *tail = js->last_child;
            if (!tail)
                for (tail = js->v2.child; tail->next;) tail = tail->next;
            tail->next = pending;
            pending = js->v2.child;
        }
        const uintptr_t base = reinterpret_cast<uintptr_t>(js) & ~(kBlockBytes - 1);
        if (base == reinterpret_cast<uintptr_t>(run)) {
            ++run_length;
        } else if (is_block(base)) {
            if (run) drop(run, run_length);
            run = reinterpret_cast<BlockHeader *>(base);
            run_length = 1;
        } else {
            std::free(js);
            continue;
        }
        UDFKIT_POISON(js, sizeof(JsonNode));
    }
    if (run) drop(run, run_length);
}

}  // namespace udfkit::json
