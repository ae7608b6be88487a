// JSON SQL functions: numbered parsers and node handles.
//
// A parser is created from a text and named by its slot in ParserTable;
// its nodes reach SQL as 64-bit handles.  Handles come back from SQL, where
// a user can type any integer, so every handle is checked before use:
//
//   bits  0-31  position of the node in its parser's node index
//   bits 32-38  parser number (0-99)
//   bits 39-62  generation of the parser (1 to 2^24 - 1)
//
// The generation is taken from a process-wide counter when the parser is
// created, so a handle of a freed parser does not match the parser that
// later reuses its slot.  The node index is the parser's node addresses in
// ascending order, built the first time a handle of that parser is made or
// read (parsing itself pays nothing for it); making a handle is a binary
// search, reading one is a range check and an array read.  A handle that
// fails any check reads as "no node" (handle 0).
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "sqlfunc/hostcall.hpp"
#include "sqlfunc/jsonlib.hpp"
#include "udfkit/json.h"
#include "udfkit/sqlfunc.h"

using udfkit::guarded;
using udfkit::PoppedText;
using udfkit::json::kParserSlots;

namespace {

constexpr int32_t kTextSize = 512;
constexpr int32_t kNameCap = 1024;

struct ParserRecord {
    char *text;         // the parsed copy of the JSON text
    JsonNode *root;     // top-level node
    JsonNode *current;  // set to the root at creation
    uint32_t generation;
    bool indexed;
    std::vector<JsonNode *> nodes;  // node index, ascending addresses
};

ParserRecord *ParserTable[kParserSlots];
uint32_t g_last_generation;

constexpr int kSlotShift = 32;
constexpr int kGenerationShift = 39;
constexpr uint32_t kGenerationMask = (1u << 24) - 1;

uint32_t next_generation() {
    g_last_generation = g_last_generation % kGenerationMask + 1;  // 1 .. 2^24 - 1
    return g_last_generation;
}

// Parser numbers outside 0-99 are empty slots.
ParserRecord *parser_at(int32_t number) {
    return number >= 0 && number < kParserSlots ? ParserTable[number] : nullptr;
}

void build_index(ParserRecord *rec) {
    std::vector<JsonNode *> &nodes = rec->nodes;
    nodes.clear();
    std::vector<JsonNode *> todo{rec->root};
    while (!todo.empty()) {
        JsonNode *n = todo.back();
        todo.pop_back();
        nodes.push_back(n);
        if (n->kind == JSON_OBJECT || n->kind == JSON_ARRAY)
            for (JsonNode *c = n->v2.child; c; c = c->next) todo.push_back(c);
    }
    std::sort(nodes.begin(), nodes.end(), std::less<JsonNode *>());
    rec->indexed = true;
}

void ensure_index(ParserRecord *rec) {
    if (!rec->indexed) build_index(rec);
}

// A node together with the parser it belongs to.
struct NodeRef {
    int32_t slot = -1;
    ParserRecord *rec = nullptr;
    JsonNode *node = nullptr;
};

int64_t make_handle(const NodeRef &owner, const JsonNode *node) {
    if (!node) return 0;
    ensure_index(owner.rec);
    const auto &nodes = owner.rec->nodes;
    auto it = std::lower_bound(nodes.begin(), nodes.end(), node, std::less<const JsonNode *>());
    if (it == nodes.end() || *it != node) return 0;  // not a node of this parser
    const auto pos = static_cast<uint64_t>(it - nodes.begin());
    return static_cast<int64_t>(pos | (static_cast<uint64_t>(owner.slot) << kSlotShift) |
                                (static_cast<uint64_t>(owner.rec->generation) << kGenerationShift));
}

NodeRef resolve(int64_t handle) {
    NodeRef r;
    if (handle <= 0) return r;
    const auto h = static_cast<uint64_t>(handle);
    const auto slot = static_cast<int32_t>((h >> kSlotShift) & 0x7F);
    const auto generation = static_cast<uint32_t>(h >> kGenerationShift);
    ParserRecord *rec = parser_at(slot);
    if (!rec || rec->generation != generation) return r;
    ensure_index(rec);
    const uint64_t pos = h & 0xFFFFFFFFu;
    if (pos >= rec->nodes.size()) return r;
    r.slot = slot;
    r.rec = rec;
    r.node = rec->nodes[pos];
    return r;
}

NodeRef pop_node(const HostCallTable *t) {
    int64_t h = 0;
    t->PopLong(&h);
    return resolve(h);
}

bool is_container(const JsonNode *n) { return n->kind == JSON_OBJECT || n->kind == JSON_ARRAY; }

// Children of a node.  A double keeps its value where containers keep their
// first child, so only objects and arrays have children; every other kind
// is an empty container.
JsonNode *first_child(const JsonNode *n) { return is_container(n) ? n->v2.child : nullptr; }

const char *kind_letter(const JsonNode *n) {
    switch (n->kind) {
    case JSON_OBJECT: return "O";
    case JSON_ARRAY: return "A";
    default: return "V";
    }
}

// How a node's value reaches the host.
void push_value(const HostCallTable *t, const NodeRef &owner, const JsonNode *n) {
    switch (n->kind) {
    case JSON_OBJECT:
    case JSON_ARRAY: t->PushLong(make_handle(owner, n->v2.child)); break;
    case JSON_STRING: t->PushString(n->v1.text_value ? n->v1.text_value : ""); break;
    case JSON_INTEGER: t->PushLong(n->v1.int_value); break;
    case JSON_DOUBLE: t->PushDouble(n->v2.dbl_value); break;
    case JSON_BOOL: t->PushInt(n->v1.int_value ? 1 : 0); break;
    default: t->PushString(""); break;
    }
}

JsonNode *child_named(const JsonNode *n, const char *name, size_t len) {
    for (JsonNode *c = first_child(n); c; c = c->next)
        if (c->key && std::strncmp(c->key, name, len) == 0 && c->key[len] == '\0') return c;
    return nullptr;
}

// The base-10 reading of an index step, like the C library's strtol on the
// step's text: leading blanks, a sign, digits; no digits reads 0, a value
// beyond the long range saturates.
long read_index(const char *p, const char *end) {
    while (p < end && (*p == ' ' || (*p >= '\t' && *p <= '\r'))) ++p;
    bool neg = false;
    if (p < end && (*p == '+' || *p == '-')) neg = *p++ == '-';
    long v = 0;
    for (; p < end && *p >= '0' && *p <= '9'; ++p) {
        const int d = *p - '0';
        if (v > (__LONG_MAX__ - d) / 10) return neg ? -__LONG_MAX__ : __LONG_MAX__;
        v = v * 10 + d;
    }
    return neg ? -v : v;
}

// Follows a path ("$" then ".name" and "[index]" steps) from the root.
// Steps are compared where they stand in the path, so a name or an index of
// any length is read whole, with no fixed-size copy.  Null when the path
// does not lead to a node.
JsonNode *follow_path(JsonNode *root, const char *path) {
    if (path[0] != '$') return nullptr;
    JsonNode *cur = root;
    const char *p = path + 1;
    while (*p) {
        if (*p == '.') {
            const char *name = ++p;
            while (*p && *p != '.' && *p != '[') ++p;
            if (p == name || cur->kind != JSON_OBJECT) return nullptr;
            cur = child_named(cur, name, static_cast<size_t>(p - name));
            if (!cur) return nullptr;
        } else if (*p == '[') {
            const char *index = ++p;
            while (*p && *p != ']') ++p;
            if (cur->kind != JSON_ARRAY) return nullptr;
            long i = read_index(index, p);
            if (i < 0) return nullptr;
            JsonNode *c = cur->v2.child;
            for (; c && i > 0; --i) c = c->next;
            if (!c) return nullptr;
            cur = c;
            if (*p == ']') ++p;
        } else {
            return nullptr;
        }
    }
    return cur;
}

void free_record(ParserRecord *rec) {
    std::free(rec->text);
    nx_json_free(rec->root);
    delete rec;
}

}  // namespace

extern "C" {

UDFKIT_API void jsonlib_createparser(const HostCallTable *t, int32_t nargs, const ArgDesc *,
                                     int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_INTEGER, 4)) return;
    guarded([&] {
        if (nargs != 1) {
            t->PushInt(-1);
            return;
        }
        int32_t slot = 0;
        while (slot < kParserSlots && ParserTable[slot]) ++slot;
        if (slot == kParserSlots) {
            t->PushInt(-1);
            return;
        }
        int32_t size = t->PeekStringLength();
        if (size < 1) size = 1;
        char *text = static_cast<char *>(std::malloc(static_cast<size_t>(size)));
        auto *rec = new (std::nothrow) ParserRecord{};
        if (!text || !rec) {
            char none[1];
            t->PopString(none, 1);
            std::free(text);
            delete rec;
            t->PushInt(-1);
            return;
        }
        udfkit::pop_into(t, text, size);
        JsonNode top{};
        char *end = parse_value(&top, nullptr, text);
        JsonNode *root = top.v2.child;
        if (!end || !root) {
            nx_json_free(root);
            std::free(text);
            delete rec;
            t->PushInt(-1);
            return;
        }
        rec->text = text;
        rec->root = root;
        rec->current = root;
        rec->generation = next_generation();
        ParserTable[slot] = rec;
        t->PushInt(slot);
    });
}

UDFKIT_API void jsonlib_freeparser(const HostCallTable *t, int32_t nargs, const ArgDesc *,
                                   int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_INTEGER, 4)) return;
    if (nargs != 1) return;
    int32_t number = -1;
    t->PopInt(&number);
    ParserRecord *rec = parser_at(number);
    if (!rec) return;
    ParserTable[number] = nullptr;
    free_record(rec);
}

UDFKIT_API void jsonlib_getobject(const HostCallTable *t, int32_t nargs, const ArgDesc *,
                                  int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, kTextSize)) return;
    if (nargs != 1) return;
    guarded([&] {
        int32_t number = -1;
        t->PopInt(&number);
        NodeRef r;
        r.slot = number;
        r.rec = parser_at(number);
        // An empty slot pushes nothing: the host sees no result (the SQLite
        // host gives no row).
        if (!r.rec) return;
        if (!r.rec->current) {
            t->PushString("");
            t->PushLong(0);
            return;
        }
        t->PushString(kind_letter(r.rec->current));
        t->PushLong(make_handle(r, r.rec->current));
    });
}

UDFKIT_API void jsonlib_extractobject(const HostCallTable *t, int32_t nargs, const ArgDesc *,
                                      int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, kTextSize)) return;
    if (nargs != 2) return;
    guarded([&] {
        PoppedText path(t);
        int32_t number = -1;
        t->PopInt(&number);
        NodeRef r;
        r.slot = number;
        r.rec = parser_at(number);
        JsonNode *n = r.rec && r.rec->current ? follow_path(r.rec->root, path.c_str()) : nullptr;
        if (n)
            push_value(t, r, n);
        else
            t->PushString("");
    });
}

UDFKIT_API void jsonlib_getvalue(const HostCallTable *t, int32_t nargs, const ArgDesc *,
                                 int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, kTextSize)) return;
    if (nargs != 1) return;
    guarded([&] {
        NodeRef r = pop_node(t);
        if (r.node)
            push_value(t, r, r.node);
        else
            t->PushString("");
    });
}

UDFKIT_API void jsonlib_getkey(const HostCallTable *t, int32_t nargs, const ArgDesc *,
                               int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, kTextSize)) return;
    if (nargs != 1) return;
    guarded([&] {
        NodeRef r = pop_node(t);
        t->PushString(r.node && r.node->key ? r.node->key : "");
    });
}

UDFKIT_API void jsonlib_getkeyvalue(const HostCallTable *t, int32_t nargs, const ArgDesc *,
                                    int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, kTextSize)) return;
    if (nargs != 1) return;
    guarded([&] {
        NodeRef r = pop_node(t);
        if (!r.node || !r.node->key) {
            t->PushString("");
            t->PushString("");
            return;
        }
        t->PushString(r.node->key);
        push_value(t, r, r.node);
    });
}

UDFKIT_API void jsonlib_getvalue4key(const HostCallTable *t, int32_t nargs, const ArgDesc *,
                                     int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, kTextSize)) return;
    if (nargs != 2) return;
    guarded([&] {
        char name[kNameCap];
        udfkit::pop_into(t, name);
        NodeRef r = pop_node(t);
        JsonNode *c = r.node ? child_named(r.node, name, std::strlen(name)) : nullptr;
        if (c)
            push_value(t, r, c);
        else
            t->PushString("");
    });
}

UDFKIT_API void jsonlib_next(const HostCallTable *t, int32_t nargs, const ArgDesc *,
                             int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, kTextSize)) return;
    if (nargs != 1) return;
    guarded([&] {
        NodeRef r = pop_node(t);
        JsonNode *child = nullptr;
        if (r.node && is_container(r.node)) {
            // The cursor lives in the container: after the last child it is
            // null again, so the next call starts over.
            child = r.node->cursor ? r.node->cursor->next : r.node->v2.child;
            r.node->cursor = child;
        }
        if (child) {
            t->PushString(kind_letter(child));
            t->PushLong(make_handle(r, child));
        } else {
            t->PushString("");
            t->PushLong(0);
        }
    });
}

}  // extern "C"
