// Inside the SQLite bridge: one call into a library function, the values
// on its stack, and what the bridge's files share.
//
//   stack.cpp         the value stack of a call and how values pop and push
//   slots.cpp         the host call table the library calls back
//   dispatch.cpp      scalar and aggregate entry points: describe, then run
//   table_valued.cpp  two-result functions as table-valued functions
//   load.cpp          the function rows, symbol lookup, registration
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/sqlite/bridge.hpp"
#include "sqlhelp/text.hpp"
#include "udfkit/sqlfunc.h"

namespace udfkit::sqlite {

// ------------------------------------------------------------ functions

// One row of the library's function table (udfkit/sqlfunc.h).
struct FunctionRow {
    const char *name;  // SQL name, also the library's exported symbol
    int min_args;
    int max_args;         // -1: any number
    int kind;             // UDFKIT_KIND_*
    int state;            // UDFKIT_STATE_*
    const char *column1;  // two-result functions: the names of the results
    const char *column2;
    // Only a function of its arguments alone may be deterministic to SQLite.
    bool deterministic() const;
};

// A row with the library's entry point for it.
struct Resolved {
    const FunctionRow *row;
    void *fn;
    bool bytes;  // its text result is bytes by design (UDFKIT_BYTE_RESULTS)
};

// ------------------------------------------------------------ values

// A value the bridge owns: what an ExecuteQuery stacked, the text an
// aggregate accumulated, a result kept for a table-valued function.
struct Item {
    enum Kind { Null, Int, Real, Text } kind = Null;
    int64_t i = 0;
    double d = 0;
    std::string s;
    unsigned subtype = 0;
};

int32_t clamp32(int64_t v);
int16_t code_of(sqlite3_value *v);
int16_t code_of(const Item &it);
// The text of a value as PopString hands it over: SQLite's text or bytes,
// a float in plain decimal notation, an integer in decimal.
struct ValueText {
    const char *data = "";
    size_t len = 0;
    char scratch[sqlhelp::kRealTextMax];
    void set_real(double d);
};
void text_of(sqlite3_value *v, ValueText &out);
void text_of(const Item &it, ValueText &out);
std::string item_text(const Item &it);

// One call: its SQL arguments (the last on top), above them the values an
// ExecuteQuery stacked, beneath them an aggregate's accumulated text.
struct CallState {
    sqlite3_context *ctx = nullptr;  // Direct mode: results go straight here
    sqlite3 *db = nullptr;
    sqlite3_value **argv = nullptr;
    int args_left = 0;
    std::vector<Item> above;  // stacked by ExecuteQuery; back() is the top
    Item below;
    bool below_present = false;
    int32_t rtype = 0, rsize = 0;
    bool bytes = false;  // the function's text result is bytes by design
    bool collect = false;
    std::vector<Item> results;  // Collect mode
    int pushed = 0;
    bool refused = false;  // the function refused a result over SQLite's limit
};

// The call running (null outside any call).  Every call holds the library
// lock, so calls run one at a time in the process, nested ones on the
// thread of the call that runs them: a plain variable under that lock is
// enough (and cheaper than one per thread, in a loaded module).
extern constinit CallState *g_current_call;
inline CallState *current_call() { return g_current_call; }

// Makes `state` the current call while it lives (under the library lock).
class CallScope {
public:
    explicit CallScope(CallState &state) : saved_(g_current_call) { g_current_call = &state; }
    ~CallScope() { g_current_call = saved_; }
    CallScope(const CallScope &) = delete;
    CallScope &operator=(const CallScope &) = delete;

private:
    CallState *saved_;
};

// A popped value: either an SQLite value or an owned item; neither means
// the stack was empty.
struct Popped {
    sqlite3_value *v = nullptr;
    Item item;
    bool empty = true;
};
Popped pop_value();
bool popped_null(const Popped &p);
int64_t popped_int64(const Popped &p);

// Results into SQLite, with the nulls of the declared result type.  A text
// result goes back as text when it is UTF-8 and as a BLOB otherwise;
// `bytes` marks a function whose text is in a character set the call
// names, which the bridge leaves whole.
void emit_string(sqlite3_context *ctx, const char *s, bool bytes);
void emit_int(sqlite3_context *ctx, int64_t v, int32_t rtype, unsigned subtype);
void emit_double(sqlite3_context *ctx, double d);
void emit_item(sqlite3_context *ctx, const Item &it, int32_t rtype, bool bytes);

// ------------------------------------------------------------ calls

const HostCallTable &call_table();

// Describes, then runs one call with `state` as the current call (inside
// the guard).
void run(const Resolved &r, CallState &state, int argc, sqlite3_value **argv);

void scalar_entry(sqlite3_context *ctx, int argc, sqlite3_value **argv) noexcept;
void aggregate_step(sqlite3_context *ctx, int argc, sqlite3_value **argv) noexcept;
void aggregate_final(sqlite3_context *ctx) noexcept;

// The module of the table-valued functions (user data: a Resolved).
const sqlite3_module &table_module();

}  // namespace udfkit::sqlite
