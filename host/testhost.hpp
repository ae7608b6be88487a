// The in-memory test host: a HostCallTable over a typed value stack, for
// the unit tests of every SQL-callable function.
//
// A TestHost installs itself as the current host of its thread while it
// lives (the table's slots are plain function pointers with no context).
// call() pushes the arguments in call order, runs the function with its
// table and reports what it popped and pushed; describe() runs describe
// mode and checks that no slot was touched.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "udfkit/host.h"

struct sqlite3;

namespace udfkit::test {

struct Value {
    enum Kind { Null, Int, Long, Double, String, Date, DateTime };
    Kind kind = Null;
    int64_t i = 0;
    double d = 0;
    std::string s;

    static Value null() { return {}; }
    static Value integer(int64_t v) { Value x; x.kind = Int; x.i = v; return x; }
    static Value longint(int64_t v) { Value x; x.kind = Long; x.i = v; return x; }
    static Value real(double v) { Value x; x.kind = Double; x.d = v; return x; }
    static Value str(std::string v) { Value x; x.kind = String; x.s = std::move(v); return x; }
    static Value date(int32_t day) { Value x; x.kind = Date; x.i = day; return x; }
    static Value datetime(int64_t sec) { Value x; x.kind = DateTime; x.i = sec; return x; }

    bool operator==(const Value &o) const;
    // The text this value pops as.
    std::string text() const;
};
std::ostream &operator<<(std::ostream &os, const Value &v);

// Shorthands for argument lists.
inline Value S(std::string v) { return Value::str(std::move(v)); }
inline Value I(int64_t v) { return Value::integer(v); }
inline Value L(int64_t v) { return Value::longint(v); }
inline Value D(double v) { return Value::real(v); }

struct Outcome {
    std::vector<Value> pushed;  // results, in push order
    int popped = 0;             // values popped (query rows included)
    int leftover = 0;           // arguments (or query values) left on the stack
    bool underflow = false;     // a pop found the stack empty
    bool refused = false;       // the function refused a result over the limit
    // Exactly the arguments popped and exactly n results pushed.
    bool exact(int nresults) const { return leftover == 0 && !underflow && (int)pushed.size() == nresults; }
    // The single result, for the common case.
    const Value &result() const;
};

struct Describe {
    int32_t type = -999, size = -999, aggregate = -999;
    bool touched_host = false;  // a slot was called: describe mode must not
};

// Rows returned by a query handler: values as text, or as integers.
struct QueryRows {
    int columns = 0;
    std::vector<std::vector<Value>> rows;
};

class TestHost {
public:
    TestHost();
    ~TestHost();
    TestHost(const TestHost &) = delete;
    TestHost &operator=(const TestHost &) = delete;

    const HostCallTable *table() const { return &table_; }

    Outcome call(udfkit_sqlfunc f, const std::vector<Value> &args, int nargs = -1);
    // An aggregate step: `below` sits on the stack beneath the arguments.
    Outcome call_aggregate(udfkit_sqlaggregate f, const std::vector<Value> &args,
                           const Value &below, int nargs = -1);
    Describe describe(udfkit_sqlfunc f, const std::vector<ArgDesc> &args, int nargs = -1);
    Describe describe_aggregate(udfkit_sqlaggregate f, const std::vector<ArgDesc> &args,
                                bool with_flag, int nargs = -1);

    // Pattern matching for Matches: glob by default (*, ?, [...]).
    std::function<bool(const std::string &pattern, const std::string &text)> matcher;
    // ExecuteQuery: returns false for a failing statement.  Unset, every
    // statement fails.
    std::function<bool(const std::string &sql, QueryRows &out)> query;
    // Runs ExecuteQuery on a real SQLite connection (values as text,
    // integers as integers, NULL as the empty string); only in builds with
    // SQLite.
    void use_database(sqlite3 *db);
    std::vector<std::string> queries;  // every statement asked for, in order
    // The longest result a call may build (0: no limit), set before each
    // call; -1 leaves whatever limit the thread has.
    int64_t result_limit = -1;

    std::vector<Value> stack;  // back() is the top
    int callbacks = 0;         // slots called since construction

    // Implementation of the slots (public for the C callbacks).
    Value pop();
    const Value *top() const { return stack.empty() ? nullptr : &stack.back(); }
    void push_result(Value v) { results_.push_back(std::move(v)); }

private:
    Outcome finish(size_t base);
    HostCallTable table_{};
    std::vector<Value> results_;
    int pops_ = 0;
    bool underflow_ = false;
    TestHost *previous_ = nullptr;
};

ArgDesc arg(int32_t type, int32_t size, int32_t value = 0);

}  // namespace udfkit::test
