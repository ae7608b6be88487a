// Writes the extension's install script (udfkit--1.0.sql) from the
// library's function table: one SQL function per row and argument count,
// with the PostgreSQL types below.  A row with no signature here still gets
// a function: text arguments and the result type its describe answer gives.
//   gen_sql OUTPUT
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "host/postgres/rows.hpp"

namespace {

// A PostgreSQL signature: the full parameter list (a function with optional
// trailing arguments gets one SQL function per argument count), the result
// ("a text, b bigint" for a function of two results), and properties that
// differ from what the function's state gives.
struct Signature {
    const char *name;
    const char *params;
    const char *result;
    const char *props = nullptr;
};

// Node handles are bigint; the text forms that jsonlib_extractobject and
// jsonlib_getvalue return are taken too, as in SQLite.
const Signature kSignatures[] = {
    {"capitalize", "value text", "text"},
    {"upper", "value text", "text"},
    {"lower", "value text", "text"},
    {"basename", "path text", "text"},
    {"lastchars", "value text, n integer", "text"},
    {"strpos", "value text, c text, start integer", "integer"},
    {"valascii", "c text", "integer"},
    {"strreplace", "value text, search text, replacement text", "text"},
    {"merge", "VARIADIC \"any\"", "text"},
    {"concat", "VARIADIC \"any\"", "text"},
    {"champ", "value text, separator text, n integer", "text"},
    {"group_concat", "value text, separator text", "text"},
    {"charcolumn", "n integer", "text"},
    {"vcharcolumn", "n integer", "text"},
    {"datecolumn", "", "date"},
    {"datetimecolumn", "", "timestamptz"},
    {"intcolumn", "", "integer"},
    {"minx", "VARIADIC double precision[]", "double precision"},
    {"maxx", "VARIADIC double precision[]", "double precision"},
    {"list_matches", "list text, delimiters text, pattern text", "double precision"},
    {"format", "value date, mask text", "text"},
    {"format", "value double precision, mask text", "text"},
    {"format", "value text, mask text", "text"},
    {"fuzzysearch", "pattern text, body text, charset text", "double precision"},
    {"fuzzyhighlight", "pattern text, body text, threshold double precision, charset text", "text"},
    {"fuzzyexcerpt",
     "pattern text, body text, lines integer, length integer, threshold double precision, "
     "charset text",
     "text"},
    {"fuzzysetphonex", "flag integer", "void"},
    {"fuzzysetisocode", "isocode text", "void"},
    {"fuzzysetspans", "opening text, closing text", "void"},
    {"freqquality", "body text, charset text, caseless integer", "double precision"},
    {"digramquality", "body text, charset text, caseless integer", "double precision"},
    {"textquality", "body text, charset text, caseless integer", "double precision"},
    {"convert", "value text, from_charset text, to_charset text", "bytea"},
    {"convert", "value bytea, from_charset text, to_charset text", "bytea"},
    {"jsonlib_createparser", "json text", "integer"},
    {"jsonlib_freeparser", "parser integer", "void"},
    {"jsonlib_extractobject", "parser integer, path text", "text"},
    {"jsonlib_getvalue", "node bigint", "text"},
    {"jsonlib_getvalue", "node text", "text"},
    {"jsonlib_getkey", "node bigint", "text"},
    {"jsonlib_getkey", "node text", "text"},
    {"jsonlib_getvalue4key", "node bigint, key text", "text"},
    {"jsonlib_getvalue4key", "node text, key text", "text"},
    {"jsonlib_getobject", "parser integer", "kind text, handle bigint"},
    {"jsonlib_getkeyvalue", "node bigint", "key text, value text"},
    {"jsonlib_getkeyvalue", "node text", "key text, value text"},
    {"jsonlib_next", "node bigint", "kind text, handle bigint"},
    {"jsonlib_next", "node text", "kind text, handle bigint"},
    {"coltype2string", "coltype integer, collength integer", "text"},
    {"coltype2null", "coltype integer", "text"},
    {"colattribute", "tabid integer, colno integer, attrkey text", "text"},
    {"colattributes", "tabid integer, colno integer", "text"},
    // The dictionaries are read at each call: stable rather than immutable.
    {"anonymize_first", "name text, sex integer", "text", "STABLE PARALLEL SAFE"},
    {"anonymize_last", "name text", "text", "STABLE PARALLEL SAFE"},
    {"anonymize_letter", "value text, alphabet text", "text"},
    {"anonymize_nss", "nss text, key text", "text"},
    {"anonymize_email", "address text", "text"},
    {"fuzzyrank", "query text, body text, charset text", "double precision"},
};

// The SQL helpers: PostgreSQL versions of what the SQLite extension adds
// (name, parameters, result, properties, C symbol).
struct Helper {
    const char *name, *params, *result, *props, *symbol;
};
const Helper kHelpers[] = {
    {"todate", "value text", "date", "STABLE STRICT PARALLEL SAFE", "udfkit_pg_todate"},
    {"todate", "value text, setting text", "date", "STABLE STRICT PARALLEL SAFE", "udfkit_pg_todate"},
    {"datetext", "value date", "text", "STABLE STRICT PARALLEL SAFE", "udfkit_pg_datetext"},
    {"todatetime", "value text", "timestamptz", "STABLE STRICT PARALLEL SAFE",
     "udfkit_pg_todatetime"},
    {"datetimetext", "value timestamptz", "text", "STABLE STRICT PARALLEL SAFE",
     "udfkit_pg_datetimetext"},
    {"today", "", "date", "STABLE PARALLEL SAFE", "udfkit_pg_today"},
    {"datesettings", "", "text", "STABLE PARALLEL SAFE", "udfkit_pg_datesettings"},
    {"dec_pack", "value numeric", "bytea", "IMMUTABLE STRICT PARALLEL SAFE", "udfkit_pg_dec_pack"},
    {"dec_pack", "value numeric, len integer", "bytea", "IMMUTABLE STRICT PARALLEL SAFE",
     "udfkit_pg_dec_pack"},
    {"dec_unpack", "packed bytea", "numeric", "IMMUTABLE STRICT PARALLEL SAFE",
     "udfkit_pg_dec_unpack"},
    {"dec_round", "value numeric, p integer, s integer", "numeric",
     "IMMUTABLE STRICT PARALLEL SAFE", "udfkit_pg_dec_round"},
    {"dec_format", "value numeric, width integer, places integer", "text",
     "IMMUTABLE STRICT PARALLEL SAFE", "udfkit_pg_dec_format"},
    // The error flag is per process: both run in the leader only.
    {"cvt", "value \"any\", target text", "text", "VOLATILE PARALLEL RESTRICTED", "udfkit_pg_cvt"},
    {"cvterror", "", "integer", "VOLATILE PARALLEL RESTRICTED", "udfkit_pg_cvterror"},
};

using udfkit::pg::FnRow;
using Row = FnRow;

const char *props_of(int state) {
    switch (state) {
    case UDFKIT_STATE_NONE: return "IMMUTABLE PARALLEL SAFE";
    // The settings travel to parallel workers with the session's variables.
    case UDFKIT_STATE_READS: return "STABLE PARALLEL SAFE";
    // Setting a variable is not allowed in parallel mode.
    case UDFKIT_STATE_WRITES: return "VOLATILE PARALLEL UNSAFE";
    // Parsers and node handles live in the process that made them.
    case UDFKIT_STATE_SESSION: return "VOLATILE PARALLEL RESTRICTED";
    // The queries run in a subtransaction, which parallel mode forbids.
    default: return "STABLE PARALLEL UNSAFE";
    }
}

std::vector<std::string> split(const char *list) {
    std::vector<std::string> out;
    std::string cur;
    for (const char *p = list; *p; ++p) {
        if (*p == ',') {
            out.push_back(cur);
            cur.clear();
            if (p[1] == ' ') ++p;
        } else {
            cur += *p;
        }
    }
    if (!cur.empty()) out.push_back(cur);
    return out;
}

std::string join(const std::vector<std::string> &v, size_t n, const char *prefix = "") {
    std::string s;
    for (size_t i = 0; i < n && i < v.size(); ++i) s += (i ? ", " : "") + std::string(prefix) + v[i];
    return s;
}

// The describe answer's type, for a row with no signature.
std::string default_result(const Row &r) {
    if (r.kind == UDFKIT_KIND_TWO) return "column1 text, column2 text";
    int32_t type = 0, size = 0;
    std::vector<ArgDesc> args(r.max_args > 0 ? r.max_args : 1, ArgDesc{UDF_T_CHAR, 0, 0});
    const int n = r.max_args < 0 ? 1 : r.max_args;
    if (r.kind == UDFKIT_KIND_AGGREGATE)
        reinterpret_cast<udfkit_sqlaggregate>(r.fn)(nullptr, n, args.data(), &type, &size, nullptr);
    else
        reinterpret_cast<udfkit_sqlfunc>(r.fn)(nullptr, n, args.data(), &type, &size);
    switch (type) {
    case UDF_T_SMALLINT: return size == 0 ? "void" : "integer";
    case UDF_T_INTEGER: case UDF_T_SERIAL: return "integer";
    case UDF_T_FLOAT: return "double precision";
    case UDF_T_DATE: return "date";
    case UDF_T_DATETIME: return "timestamptz";
    case UDF_T_LONGINT: return "bigint";
    case UDF_T_BLOB: return "bytea";
    default: return "text";
    }
}

std::string default_params(const Row &r) {
    if (r.max_args < 0) return "VARIADIC \"any\"";
    std::string s;
    for (int i = 0; i < r.max_args; ++i) s += (i ? ", arg" : "arg") + std::to_string(i + 1) + " text";
    return s;
}

void emit_function(FILE *out, const char *name, const std::string &params, const std::string &result,
                   bool two, const char *props, const char *symbol) {
    std::string p = params;
    std::string ret = result;
    if (two) {  // the two results as OUT parameters: one row of two columns
        const std::vector<std::string> cols = split(result.c_str());
        p += std::string(p.empty() ? "" : ", ") + join(cols, cols.size(), "OUT ");
        ret = "record";
    }
    std::fprintf(out,
                 "CREATE FUNCTION @extschema@.%s(%s) RETURNS %s\n"
                 "    AS 'MODULE_PATHNAME', '%s' LANGUAGE C %s;\n",
                 name, p.c_str(), ret.c_str(), symbol, props);
}

// group_concat: the state is the text accumulated so far; an empty text is
// NULL, so the state starts and stays NULL until a row adds something.
void emit_aggregate(FILE *out, const Row &r, const std::string &params, const char *props) {
    const std::string step = std::string(r.name) + "_step";
    const std::string symbol = std::string("udfkit_pg_") + r.name;
    emit_function(out, step.c_str(), "state text, " + params, "text", false, props, symbol.c_str());
    std::vector<std::string> ps = split(params.c_str());
    std::fprintf(out,
                 "CREATE AGGREGATE @extschema@.%s(%s) (\n"
                 "    SFUNC = @extschema@.%s, STYPE = text, PARALLEL = SAFE);\n",
                 r.name, join(ps, ps.size()).c_str(), step.c_str());
}

void emit_row(FILE *out, const Row &r, const std::string &params, const std::string &result,
              const char *props) {
    const std::string symbol = std::string("udfkit_pg_") + r.name;
    if (r.kind == UDFKIT_KIND_AGGREGATE) return emit_aggregate(out, r, params, props);
    const bool two = r.kind == UDFKIT_KIND_TWO;
    if (r.max_args < 0) {
        if (r.min_args == 0) emit_function(out, r.name, "", result, two, props, symbol.c_str());
        emit_function(out, r.name, params, result, two, props, symbol.c_str());
        return;
    }
    const std::vector<std::string> ps = split(params.c_str());
    for (int n = r.min_args; n <= r.max_args; ++n)
        emit_function(out, r.name, join(ps, static_cast<size_t>(n)), result, two, props, symbol.c_str());
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: gen_sql OUTPUT\n");
        return 2;
    }
    FILE *out = std::fopen(argv[1], "w");
    if (!out) {
        std::perror(argv[1]);
        return 1;
    }
    std::fprintf(out,
                 "-- udfkit for PostgreSQL: every SQL function of the library.  Generated by\n"
                 "-- gen_sql from the library's function table; do not edit.\n"
                 "\\echo Use \"CREATE EXTENSION udfkit\" to load this file. \\quit\n\n");
    for (const Row &r : udfkit::pg::kFnRows) {
        bool found = false;
        for (const Signature &s : kSignatures) {
            if (std::strcmp(s.name, r.name) != 0) continue;
            found = true;
            emit_row(out, r, s.params, s.result, s.props ? s.props : props_of(r.state));
        }
        if (!found) emit_row(out, r, default_params(r), default_result(r), props_of(r.state));
    }
    std::fprintf(out, "\n-- SQL helpers\n");
    for (const Helper &h : kHelpers) emit_function(out, h.name, h.params, h.result, false, h.props, h.symbol);
    return std::fclose(out) == 0 ? 0 : 1;
}
