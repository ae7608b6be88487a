// The in-memory test host.  Choices left to a host: a value of another type
// popped as a number is converted as the C library's strtoll/strtod would;
// a null value pops as the null of the asked type (INT32_MIN, INT64_MIN,
// the all-ones double, the empty string); PeekType(-k) describes the k-th
// value from the top and PeekType(k >= 0) the k-th from the bottom; an
// empty stack pops a null and is reported as an underflow.
#include "host/testhost.hpp"
#include "runtime/null_traits.hpp"
#include "sqlhelp/call_table.hpp"
#include "sqlhelp/text.hpp"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <ostream>

namespace udfkit::test {

namespace {

thread_local TestHost *g_host = nullptr;

TestHost &host() {
    // A slot called with no live TestHost is a test bug: fail loudly.
    if (!g_host) {
        std::fputs("testhost: slot called with no current host\n", stderr);
        std::abort();
    }
    ++g_host->callbacks;
    return *g_host;
}

int32_t clamp32(int64_t v) {
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(v);
}

int64_t double_to_64(double d) {
    if (std::isnan(d)) return nulls::kLong;
    if (d >= 9.2233720368547758e18) return INT64_MAX;
    if (d <= -9.2233720368547758e18) return INT64_MIN;
    return static_cast<int64_t>(d);
}

int64_t as_int64(const Value &v, int64_t null_value) {
    switch (v.kind) {
    case Value::Null: return null_value;
    case Value::Double: return double_to_64(v.d);
    case Value::String: return std::strtoll(v.s.c_str(), nullptr, 10);
    default: return v.i;
    }
}

int16_t type_code(const Value &v) {
    switch (v.kind) {
    case Value::Int: return UDF_T_INTEGER;
    case Value::Long: return UDF_T_LONGINT;
    case Value::Double: return UDF_T_FLOAT;
    case Value::Date: return UDF_T_DATE;
    case Value::DateTime: return UDF_T_DATETIME;
    default: return UDF_T_CHAR;
    }
}

thread_local HostValueDesc g_desc;

const HostValueDesc *slot_peek_type(int32_t position) {
    TestHost &h = host();
    const auto n = static_cast<int64_t>(h.stack.size());
    int64_t index = position < 0 ? n + position : position;
    g_desc.type = (index >= 0 && index < n) ? type_code(h.stack[index]) : -1;
    return &g_desc;
}
void slot_push_int(int32_t v) { host().push_result(Value::integer(v)); }
void slot_push_long(int64_t v) { host().push_result(Value::longint(v)); }
void slot_push_datetime(int64_t v) { host().push_result(Value::datetime(v)); }
void slot_push_double(double v) { host().push_result(Value::real(v)); }
void slot_push_string(const char *s) { host().push_result(Value::str(s ? s : "")); }
void slot_pop_int(int32_t *out) {
    Value v = host().pop();
    *out = clamp32(as_int64(v, nulls::kInteger));
}
void slot_pop_long(int64_t *out) {
    Value v = host().pop();
    *out = as_int64(v, nulls::kLong);
}
void slot_pop_double(double *out) {
    Value v = host().pop();
    switch (v.kind) {
    case Value::Null: *out = nulls::float_null(); break;
    case Value::Double: *out = v.d; break;
    case Value::String: *out = std::strtod(v.s.c_str(), nullptr); break;
    default: *out = static_cast<double>(v.i); break;
    }
}
void slot_pop_date(int32_t *out) {
    Value v = host().pop();
    *out = clamp32(as_int64(v, nulls::kInteger));
}
void slot_pop_string(char *buf, int32_t cap) {
    Value v = host().pop();
    if (cap <= 0) return;  // no room even for the terminator
    std::string s = v.text();
    const size_t n = sqlhelp::pop_length(s.data(), s.size(), cap);
    std::memcpy(buf, s.data(), n);
    buf[n] = '\0';
}
int32_t slot_peek_string_length() {
    TestHost &h = host();
    const Value *v = h.top();
    size_t n = v ? v->text().size() + 1 : 1;
    return n > INT32_MAX ? INT32_MAX : static_cast<int32_t>(n);
}
int32_t slot_matches(const char *pattern, const char *text) {
    TestHost &h = host();
    return h.matcher(pattern ? pattern : "", text ? text : "") ? 1 : 0;
}
int32_t slot_execute_query(const char *sql) {
    TestHost &h = host();
    h.queries.emplace_back(sql ? sql : "");
    sqlhelp::QueryDepth depth;  // a handler may run functions that query again
    if (!depth.entered()) return -1;
    QueryRows rows;
    if (!h.query || !h.query(h.queries.back(), rows)) return -1;
    // From the top: row count, column count, then the first row's first
    // column, ... so they are stacked in reverse.
    for (size_t r = rows.rows.size(); r-- > 0;)
        for (size_t c = rows.rows[r].size(); c-- > 0;) h.stack.push_back(rows.rows[r][c]);
    h.stack.push_back(Value::integer(rows.columns));
    h.stack.push_back(Value::integer(static_cast<int64_t>(rows.rows.size())));
    return 0;
}

}  // namespace

bool Value::operator==(const Value &o) const {
    if (kind != o.kind) return false;
    switch (kind) {
    case Null: return true;
    case Double: return std::memcmp(&d, &o.d, sizeof d) == 0 || d == o.d;
    case String: return s == o.s;
    default: return i == o.i;
    }
}

std::string Value::text() const {
    switch (kind) {
    case Null: return "";
    case String: return s;
    case Double: {
        char buf[sqlhelp::kRealTextMax];
        return std::string(buf, sqlhelp::real_to_text(d, buf));
    }
    default: return std::to_string(i);
    }
}

std::ostream &operator<<(std::ostream &os, const Value &v) {
    switch (v.kind) {
    case Value::Null: return os << "NULL";
    case Value::Int: return os << "int " << v.i;
    case Value::Long: return os << "long " << v.i;
    case Value::Double: return os << "double " << v.text();
    case Value::String: return os << "'" << v.s << "'";
    case Value::Date: return os << "date " << v.i;
    case Value::DateTime: return os << "datetime " << v.i;
    }
    return os;
}

const Value &Outcome::result() const {
    static const Value none = Value::str("<no result pushed>");
    return pushed.empty() ? none : pushed.front();
}

ArgDesc arg(int32_t type, int32_t size, int32_t value) { return ArgDesc{type, size, value}; }

TestHost::TestHost() {
    UDFKIT_FILL_CALL_TABLE(table_);
    matcher = [](const std::string &p, const std::string &t) {
        return sqlhelp::glob_match(p.c_str(), t.c_str());
    };
    previous_ = g_host;
    g_host = this;
}

TestHost::~TestHost() { g_host = previous_; }

Value TestHost::pop() {
    ++pops_;
    if (stack.empty()) {
        underflow_ = true;
        return Value::null();
    }
    Value v = std::move(stack.back());
    stack.pop_back();
    return v;
}

Outcome TestHost::finish(size_t base) {
    Outcome o;
    o.pushed = std::move(results_);
    results_.clear();
    o.popped = pops_;
    o.underflow = underflow_;
    o.refused = udfkit_result_refused() != 0;
    o.leftover = stack.size() > base ? static_cast<int>(stack.size() - base) : 0;
    stack.resize(std::min(stack.size(), base));
    return o;
}

Outcome TestHost::call(udfkit_sqlfunc f, const std::vector<Value> &args, int nargs) {
    const size_t base = stack.size();
    pops_ = 0;
    underflow_ = false;
    results_.clear();
    for (const Value &v : args) stack.push_back(v);
    int32_t t = -1, s = -1;
    TestHost *saved = g_host;
    g_host = this;
    if (result_limit >= 0) udfkit_set_result_limit(result_limit);
    f(&table_, nargs < 0 ? static_cast<int32_t>(args.size()) : nargs, nullptr, &t, &s);
    g_host = saved;
    return finish(base);
}

Outcome TestHost::call_aggregate(udfkit_sqlaggregate f, const std::vector<Value> &args,
                                 const Value &below, int nargs) {
    const size_t base = stack.size();
    pops_ = 0;
    underflow_ = false;
    results_.clear();
    stack.push_back(below);
    for (const Value &v : args) stack.push_back(v);
    int32_t t = -1, s = -1, a = -1;
    TestHost *saved = g_host;
    g_host = this;
    if (result_limit >= 0) udfkit_set_result_limit(result_limit);
    f(&table_, nargs < 0 ? static_cast<int32_t>(args.size()) : nargs, nullptr, &t, &s, &a);
    g_host = saved;
    return finish(base);
}

Describe TestHost::describe(udfkit_sqlfunc f, const std::vector<ArgDesc> &args, int nargs) {
    Describe d;
    const int before = callbacks;
    const size_t depth = stack.size();
    f(nullptr, nargs < 0 ? static_cast<int32_t>(args.size()) : nargs,
      args.empty() ? nullptr : args.data(), &d.type, &d.size);
    d.touched_host = callbacks != before || stack.size() != depth || !results_.empty();
    return d;
}

Describe TestHost::describe_aggregate(udfkit_sqlaggregate f, const std::vector<ArgDesc> &args,
                                      bool with_flag, int nargs) {
    Describe d;
    const int before = callbacks;
    f(nullptr, nargs < 0 ? static_cast<int32_t>(args.size()) : nargs,
      args.empty() ? nullptr : args.data(), &d.type, &d.size, with_flag ? &d.aggregate : nullptr);
    d.touched_host = callbacks != before || !results_.empty();
    return d;
}

}  // namespace udfkit::test
