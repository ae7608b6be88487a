// Loading the extension: the rows of the library's function table, their
// entry points looked up in the library, registration on a connection.
#include "host/sqlite/call.hpp"

SQLITE_EXTENSION_INIT1

#include <dlfcn.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace udfkit::sqlite {

namespace {

NativeBlock *g_natives = nullptr;

#define UDFKIT_ROW(name, min, max, kind, state, c1, c2) {#name, min, max, kind, state, c1, c2},
constexpr FunctionRow kFunctions[] = {UDFKIT_ALL_SQLFUNCS(UDFKIT_ROW)};
#undef UDFKIT_ROW

bool bytes_result(const char *name) {
#define UDFKIT_IS(fn) || std::strcmp(name, #fn) == 0
    return false UDFKIT_BYTE_RESULTS(UDFKIT_IS);
#undef UDFKIT_IS
}

std::vector<Resolved> *g_resolved = nullptr;
std::string g_load_error;

// The name the build gave the library (its soname).
#ifndef UDFKIT_CORE_LIBRARY
#error "UDFKIT_CORE_LIBRARY must name the library's shared object"
#endif

void *library_handle() {
    // The bridge is linked against the library, so it is loaded already;
    // lookups go through its handle so that its names win over any other
    // object's (the C library has its own `basename`).
    void *h = dlopen(UDFKIT_CORE_LIBRARY, RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
    if (!h) h = dlopen(UDFKIT_CORE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    return h;
}

bool resolve_all() {
    static std::once_flag once;
    std::call_once(once, [] {
        void *h = library_handle();
        if (!h) {
            g_load_error = std::string("udfkit: cannot open " UDFKIT_CORE_LIBRARY ": ") + dlerror();
            return;
        }
        auto list = std::make_unique<std::vector<Resolved>>();
        for (const FunctionRow &row : kFunctions) {
            void *fn = dlsym(h, row.name);
            if (!fn) {
                g_load_error = std::string("udfkit: the library has no function ") + row.name;
                return;
            }
            list->push_back({&row, fn, bytes_result(row.name)});
        }
        // Kept for the life of the process: connections point into it.
        g_resolved = list.release();
        // Date settings are fixed once per process, before any date work.
        if (auto init = reinterpret_cast<void (*)(void)>(dlsym(h, "_date_init"))) init();
    });
    return g_resolved != nullptr;
}

int register_row(sqlite3 *db, const Resolved &r) {
    const FunctionRow &row = *r.row;
    int flags = SQLITE_UTF8;
    if (row.deterministic()) flags |= SQLITE_DETERMINISTIC;
#ifdef SQLITE_SUBTYPE
    flags |= SQLITE_SUBTYPE;
#endif
    flags |= result_subtype_flag();
    void *user = const_cast<Resolved *>(&r);
    switch (row.kind) {
    case UDFKIT_KIND_TWO:
        return sqlite3_create_module(db, row.name, &table_module(), user);
    case UDFKIT_KIND_AGGREGATE:
        for (int n = row.min_args; n <= row.max_args; ++n) {
            int rc = sqlite3_create_function(db, row.name, n, flags, user, nullptr,
                                             aggregate_step, aggregate_final);
            if (rc != SQLITE_OK) return rc;
        }
        return SQLITE_OK;
    case UDFKIT_KIND_SCALAR:
        if (row.max_args < 0)
            return sqlite3_create_function(db, row.name, -1, flags, user, scalar_entry, nullptr,
                                           nullptr);
        for (int n = row.min_args; n <= row.max_args; ++n) {
            int rc = sqlite3_create_function(db, row.name, n, flags, user, scalar_entry, nullptr,
                                             nullptr);
            if (rc != SQLITE_OK) return rc;
        }
        return SQLITE_OK;
    }
    return SQLITE_ERROR;
}

// Registers every function on a connection; on failure, says which.
int register_all(sqlite3 *db, char **message) {
    if (!resolve_all()) {
        *message = sqlite3_mprintf("%s", g_load_error.c_str());
        return SQLITE_ERROR;
    }
    for (const Resolved &r : *g_resolved) {
        if (int rc = register_row(db, r); rc != SQLITE_OK) {
            *message = sqlite3_mprintf("udfkit: cannot register %s", r.row->name);
            return rc;
        }
    }
    for (NativeBlock *b = g_natives; b; b = b->next) {
        if (int rc = b->registrar(db); rc != SQLITE_OK) {
            *message = sqlite3_mprintf("udfkit: cannot register native functions");
            return rc;
        }
    }
    return SQLITE_OK;
}

}  // namespace

bool FunctionRow::deterministic() const { return state == UDFKIT_STATE_NONE; }

NativeBlock::NativeBlock(NativeRegistrar r) : registrar(r), next(g_natives) { g_natives = this; }

std::recursive_mutex &library_lock() {
    static std::recursive_mutex lock;
    return lock;
}

int result_subtype_flag() {
#ifdef SQLITE_RESULT_SUBTYPE
    return SQLITE_RESULT_SUBTYPE;
#else
    return 0;
#endif
}

}  // namespace udfkit::sqlite

using namespace udfkit::sqlite;

extern "C" __attribute__((visibility("default"))) int
sqlite3_udfkitsqlite_init(sqlite3 *db, char **errmsg, const sqlite3_api_routines *api) {
    SQLITE_EXTENSION_INIT2(api);
    char *message = nullptr;
    const int rc = guard([&] { return register_all(db, &message); });
    if (errmsg)
        *errmsg = message;
    else
        sqlite3_free(message);
    return rc;
}

extern "C" __attribute__((visibility("default"))) int
sqlite3_extension_init(sqlite3 *db, char **errmsg, const sqlite3_api_routines *api) {
    return sqlite3_udfkitsqlite_init(db, errmsg, api);
}
