// Helpers shared by the SQL-callable functions: describe-mode answers,
// popping length-sized strings, and the guard that keeps C++ exceptions
// from ever reaching the host.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>

#include "udfkit/host.h"

namespace udfkit {

// True when a result of `bytes` bytes (terminator excluded) is within the
// limit the host set for this call; otherwise marks the call as refused.
// A function that gets false pushes nothing.
bool result_fits(uint64_t bytes) noexcept;

// The largest result the host accepts for this call, in bytes (terminator
// excluded); UINT64_MAX when it set no limit.  Asking marks nothing.
uint64_t result_limit() noexcept;

// Runs the body of an SQL function; an exception (allocation failure) ends
// the call with whatever has been pushed so far, never reaching the host.
template <class F>
inline void guarded(F &&body) noexcept {
    try {
        body();
    } catch (...) {
    }
}

// Describe mode with a constant answer.  Returns true when table is null,
// i.e. when the caller must return at once.
inline bool describe_const(const HostCallTable *table, int32_t *type, int32_t *size,
                           int32_t t, int32_t s) noexcept {
    if (table) return false;
    if (type) *type = t;
    if (size) *size = s;
    return true;
}

// Describe mode answering the type and size of the first argument.  With no
// argument record the answer is char of size 0.
inline bool describe_arg1(const HostCallTable *table, int32_t nargs, const ArgDesc *args,
                          int32_t *type, int32_t *size) noexcept {
    if (table) return false;
    const bool have = nargs >= 1 && args;
    if (type) *type = have ? args[0].type : UDF_T_CHAR;
    if (size) *size = have ? args[0].size : 0;
    return true;
}

// Describe mode answering type t and the `value` of argument n (1-based).
inline bool describe_value_of(const HostCallTable *table, int32_t nargs, const ArgDesc *args,
                              int32_t *type, int32_t *size, int32_t t, int n) noexcept {
    if (table) return false;
    if (type) *type = t;
    if (size) *size = (nargs >= n && args) ? args[n - 1].value : 0;
    return true;
}

// Pops the top value as text into buf with capacity cap (at least 1): at
// most cap - 1 characters, always terminated, whatever the host wrote.
inline void pop_into(const HostCallTable *t, char *buf, int32_t cap) noexcept {
    buf[0] = '\0';
    t->PopString(buf, cap);
    buf[cap - 1] = '\0';
}

// The same into a whole array.
template <size_t N>
inline void pop_into(const HostCallTable *t, char (&buf)[N]) noexcept {
    pop_into(t, buf, static_cast<int32_t>(N));
}

// A string popped whole: PeekStringLength bytes, popped with that capacity.
// Short texts live inside the object; longer ones on the heap.
class PoppedText {
public:
    explicit PoppedText(const HostCallTable *t, size_t extra = 0) {
        int32_t n = t->PeekStringLength();
        if (n < 1) n = 1;  // a host answering 0 or less still gets a terminator
        cap_ = n;
        size_t bytes = static_cast<size_t>(n) + extra;
        if (bytes <= sizeof(inline_)) {
            data_ = inline_;
        } else {
            heap_.reset(new char[bytes]);
            data_ = heap_.get();
        }
        pop_into(t, data_, n);
    }
    PoppedText(const PoppedText &) = delete;
    PoppedText &operator=(const PoppedText &) = delete;

    char *data() noexcept { return data_; }
    const char *c_str() const noexcept { return data_; }
    // The capacity the text was popped with (PeekStringLength's answer).
    int32_t capacity() const noexcept { return cap_; }
    size_t length() const noexcept { return std::strlen(data_); }

private:
    char inline_[512];
    std::unique_ptr<char[]> heap_;
    char *data_ = nullptr;
    int32_t cap_ = 0;
};

}  // namespace udfkit
