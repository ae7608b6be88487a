// Two-result functions as eponymous table-valued functions of one row:
// two result columns, then one hidden column per argument.
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "host/sqlite/call.hpp"

namespace udfkit::sqlite {

namespace {

// Arguments are told apart by a bit each.
constexpr int kMaxTableArgs = 16;

struct Vtab {
    sqlite3_vtab base;
    const Resolved *fn;
    sqlite3 *db;
};

struct Cursor {
    sqlite3_vtab_cursor base;
    std::vector<Item> results;
    std::vector<sqlite3_value *> args;
    int32_t rtype = 0;
    bool eof = true;
};

int vt_connect(sqlite3 *db, void *aux, int, const char *const *, sqlite3_vtab **out,
               char **err) noexcept {
    const auto *r = static_cast<const Resolved *>(aux);
    if (r->row->max_args < 0 || r->row->max_args > kMaxTableArgs) {
        *err = sqlite3_mprintf("%s: too many arguments for a table-valued function", r->row->name);
        return SQLITE_ERROR;
    }
    return guard([&] {
        std::string schema = "CREATE TABLE x(\"";
        schema += r->row->column1 ? r->row->column1 : "value";
        schema += "\",\"";
        schema += r->row->column2 ? r->row->column2 : "value2";
        schema += "\"";
        for (int i = 0; i < r->row->max_args; ++i) schema += ",arg" + std::to_string(i + 1) + " HIDDEN";
        schema += ")";
        int rc = sqlite3_declare_vtab(db, schema.c_str());
        if (rc != SQLITE_OK) return rc;
        auto *v = static_cast<Vtab *>(sqlite3_malloc(sizeof(Vtab)));
        if (!v) return SQLITE_NOMEM;
        std::memset(v, 0, sizeof *v);
        v->fn = r;
        v->db = db;
        *out = &v->base;
        return SQLITE_OK;
    });
}

int vt_disconnect(sqlite3_vtab *vt) noexcept {
    sqlite3_free(vt);
    return SQLITE_OK;
}

// Replaces the table's error message.
void set_error(sqlite3_vtab *vt, const char *message) noexcept {
    sqlite3_free(vt->zErrMsg);
    vt->zErrMsg = sqlite3_mprintf("%s", message);
}

// Each argument comes from an equality on its hidden column (written as
// the function's argument list).  A plan where one is not usable yet is
// refused so that SQLite tries another join order; an argument that no
// equality gives at all is an error in words.  A second equality on the
// same column is left to SQLite, which checks it against the row.
int vt_best_index(sqlite3_vtab *vt, sqlite3_index_info *info) noexcept {
    const auto *v = reinterpret_cast<Vtab *>(vt);
    const int nargs = v->fn->row->max_args;
    int given[kMaxTableArgs], usable = 0, unusable = 0;
    for (int i = 0; i < info->nConstraint; ++i) {
        const auto &c = info->aConstraint[i];
        const int k = c.iColumn - 2;
        if (k < 0 || k >= nargs || c.op != SQLITE_INDEX_CONSTRAINT_EQ) continue;
        if (!c.usable) {
            unusable |= 1 << k;
        } else if (!(usable & (1 << k))) {
            usable |= 1 << k;
            given[k] = i;
        }
    }
    if (unusable & ~usable) return SQLITE_CONSTRAINT;
    for (int k = 0; k < nargs; ++k) {
        if (usable & (1 << k)) {
            info->aConstraintUsage[given[k]].argvIndex = k + 1;
            info->aConstraintUsage[given[k]].omit = 1;
            continue;
        }
        char msg[160];
        sqlite3_snprintf(sizeof msg, msg,
                         "%s(): argument %d of %d is missing (give it in the call, %s(...),"
                         " or as arg%d = value)",
                         v->fn->row->name, k + 1, nargs, v->fn->row->name, k + 1);
        set_error(vt, msg);
        return SQLITE_ERROR;
    }
    info->idxNum = nargs;
    info->estimatedCost = 1;
    info->estimatedRows = 1;
    info->idxFlags = SQLITE_INDEX_SCAN_UNIQUE;
    return SQLITE_OK;
}

void free_args(Cursor *c) noexcept {
    for (sqlite3_value *v : c->args) sqlite3_value_free(v);
    c->args.clear();
}

int vt_open(sqlite3_vtab *, sqlite3_vtab_cursor **out) noexcept {
    auto *c = new (std::nothrow) Cursor();
    if (!c) return SQLITE_NOMEM;
    *out = &c->base;
    return SQLITE_OK;
}

int vt_close(sqlite3_vtab_cursor *cur) noexcept {
    auto *c = reinterpret_cast<Cursor *>(cur);
    free_args(c);
    delete c;
    return SQLITE_OK;
}

int vt_filter(sqlite3_vtab_cursor *cur, int, const char *, int argc, sqlite3_value **argv) noexcept {
    auto *c = reinterpret_cast<Cursor *>(cur);
    const auto *v = reinterpret_cast<Vtab *>(cur->pVtab);
    free_args(c);
    c->results.clear();
    c->eof = true;
    return guard([&] {
        c->args.reserve(argc);  // so that no copy is lost to a failing push
        for (int i = 0; i < argc; ++i) {
            c->args.push_back(sqlite3_value_dup(argv[i]));
            if (!c->args.back()) return SQLITE_NOMEM;
        }
        CallState state;
        state.db = v->db;
        state.collect = true;
        run(*v->fn, state, argc, c->args.data());
        if (state.refused) return SQLITE_TOOBIG;
        c->results = std::move(state.results);
        c->rtype = state.rtype;
        c->eof = c->results.empty();  // a function that pushed nothing gives no row
        return SQLITE_OK;
    });
}

int vt_next(sqlite3_vtab_cursor *cur) noexcept {
    reinterpret_cast<Cursor *>(cur)->eof = true;
    return SQLITE_OK;
}

int vt_eof(sqlite3_vtab_cursor *cur) noexcept { return reinterpret_cast<Cursor *>(cur)->eof; }

int vt_column(sqlite3_vtab_cursor *cur, sqlite3_context *ctx, int i) noexcept {
    auto *c = reinterpret_cast<Cursor *>(cur);
    const auto *v = reinterpret_cast<Vtab *>(cur->pVtab);
    if (i < 2) {
        if (static_cast<size_t>(i) < c->results.size())
            emit_item(ctx, c->results[i], c->rtype, v->fn->bytes);
        else
            sqlite3_result_null(ctx);
    } else if (static_cast<size_t>(i - 2) < c->args.size()) {
        sqlite3_result_value(ctx, c->args[i - 2]);
    }
    return SQLITE_OK;
}

int vt_rowid(sqlite3_vtab_cursor *, sqlite3_int64 *rowid) noexcept {
    *rowid = 1;
    return SQLITE_OK;
}

sqlite3_module make_module() {
    sqlite3_module m{};
    m.iVersion = 0;
    m.xCreate = nullptr;  // eponymous only: the function name is the table
    m.xConnect = vt_connect;
    m.xBestIndex = vt_best_index;
    m.xDisconnect = vt_disconnect;
    m.xDestroy = vt_disconnect;
    m.xOpen = vt_open;
    m.xClose = vt_close;
    m.xFilter = vt_filter;
    m.xNext = vt_next;
    m.xEof = vt_eof;
    m.xColumn = vt_column;
    m.xRowid = vt_rowid;
    return m;
}
const sqlite3_module g_module = make_module();

}  // namespace

const sqlite3_module &table_module() { return g_module; }

}  // namespace udfkit::sqlite
