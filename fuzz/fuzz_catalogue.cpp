// The catalogue functions over catalogues that are views, some of whose
// columns call the catalogue functions again (the lookup re-enters the
// library through the host's query).  Per input, a new database:
//   byte 0: which of systypes / syscolattr are views that call back, and
//           which function they call;
//   then the type id, table id, column number and attribute key of the
//   views and of the outer call, from the bytes.
// Checks: no crash, no stack overflow, every text result valid UTF-8.
#include "fuzz/sql_fuzz_db.hpp"

namespace {

using fuzzsql::Reader;

std::string quoted(const std::string &s) {
    std::string out = "'";
    for (char c : s) {
        if (c == '\0') continue;
        out += c;
        if (c == '\'') out += '\'';
    }
    return out + "'";
}

const char *const kCalls[] = {"coltype2string(%d, %d)", "colattribute(%d, %d, %s)",
                              "colattributes(%d, %d)"};

// One of the three functions, or (when `literal` allows) the key itself.
std::string inner_call(Reader &in, const std::string &key, bool literal = true) {
    char buf[600];
    int a = static_cast<int8_t>(in.byte()), b = static_cast<int8_t>(in.byte());
    switch (in.byte() % (literal ? 4 : 3)) {
        case 0: snprintf(buf, sizeof buf, kCalls[0], a, b); break;
        case 1: snprintf(buf, sizeof buf, kCalls[1], a, b, key.c_str()); break;
        case 2: snprintf(buf, sizeof buf, kCalls[2], a, b); break;
        default: return quoted(key);
    }
    return buf;
}

void make_catalogue(sqlite3 *db, Reader &in) {
    uint8_t shape = in.byte();
    std::string key = quoted(in.chunk(40));
    int typeid_ = static_cast<int8_t>(in.byte()), tabid = static_cast<int8_t>(in.byte());
    int colno = static_cast<int8_t>(in.byte());
    std::string types = (shape & 1)
        ? "create view systypes as select " + std::to_string(typeid_) + " typeid, " +
              inner_call(in, key) + " typename"
        : "create table systypes(typeid integer, typename text); insert into systypes values(" +
              std::to_string(typeid_) + ", " + key + ")";
    std::string attrs = (shape & 2)
        ? "create view syscolattr as select " + std::to_string(tabid) + " tabid, " +
              std::to_string(colno) + " colno, " + key + " attrkey, " + inner_call(in, key) +
              " attrvalue"
        : "create table syscolattr(tabid integer, colno integer, attrkey text, attrvalue text);"
          " insert into syscolattr values(" + std::to_string(tabid) + ", " +
              std::to_string(colno) + ", " + key + ", " + quoted(in.chunk(40)) + ")";
    sqlite3_exec(db, types.c_str(), nullptr, nullptr, nullptr);
    sqlite3_exec(db, attrs.c_str(), nullptr, nullptr, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Reader in(data, size);
    sqlite3 *db = fuzzsql::open_db();
    make_catalogue(db, in);
    while (!in.empty()) {
        std::string key = quoted(in.chunk(40));
        fuzzsql::run(db, "select " + inner_call(in, key, false));
    }
    sqlite3_close(db);
    return 0;
}
