// Values between PostgreSQL's Datums and the bridge's records.
#pragma once

#include "host/postgres/pg.hpp"

namespace udfkit::pg {

// How an argument of a PostgreSQL type is read.
enum class In : uint8_t {
    Text,         // text, varchar, bpchar: the bytes as they are
    Bytes,        // bytea
    Int2, Int4, Int8, Bool,
    Float4, Float8,
    Date,         // a day number
    Timestamp,    // timestamp (local) and timestamptz: seconds since 1970
    TimestampTz,
    Other,        // any other type: its text (output function)
};

// How a result is handed back.
enum class Out : uint8_t { Void, Text, Bytes, Int2, Int4, Int8, Float8, Date, TimestampTz, Record };

In in_class(Oid type) noexcept;
Out out_class(Oid type) noexcept;

// Reads a non-null Datum of `type` (C-like: may raise).
void read_datum(Datum d, In cls, Oid type, Arg &a);

// A pushed value as a result of class `out`; *isnull set for the null of
// the declared result type `rtype` (C-like: raises for a text that is not
// UTF-8 and for a number beyond the result type).
Datum result_datum(const Pushed &p, int32_t rtype, Out out, bool *isnull, const char *fn);

}  // namespace udfkit::pg
