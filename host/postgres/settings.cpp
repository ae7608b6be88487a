// The fuzzy settings as configuration variables, so that parallel workers
// (each its own process, with its own copy of the library's settings) work
// under the session's settings:
//   udfkit.phonex      1 phonetic keys, 0 letters only   (fuzzysetphonex)
//   udfkit.isocode     the texts' character set          (fuzzysetisocode)
//   udfkit.span_open   the highlight markers             (fuzzysetspans)
//   udfkit.span_close
// PostgreSQL hands every variable a session has set to its workers.  Before
// a call of a function that reads the settings, the bridge gives the
// library any value that differs from the one it gave last; after a setter
// ran, the variables take the library's new values.  So SET works as well
// as the setters, and a setting made in a transaction that rolls back is
// undone in the library too.
//
// The compiled search pattern is kept between calls for the same pattern
// text; a pattern compiled under other settings or another character set
// would make a process that compiled it earlier answer differently from a
// fresh worker.  So a change of the phonetic setting, or a search naming
// another character set than the previous one, drops the compiled pattern.
extern "C" {
#include "postgres.h"

#include "utils/guc.h"
}

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include "host/postgres/pg.hpp"
#include "host/postgres/rows.hpp"
#include "udfkit/date.h"
#include "udfkit/fuzzy.h"

namespace udfkit::pg {

namespace {

// The variables (set by PostgreSQL).
int g_phonex = 1;
char *g_isocode = nullptr;
char *g_span_open = nullptr;
char *g_span_close = nullptr;

// What the library was last given, and the character set of the last
// fuzzy call.
struct Applied {
    int phonex = 1;
    std::string isocode = "UTF-8";
    std::string open, close;
    std::string charset = "UTF-8";
};
Applied *g_applied = nullptr;

const char *str(const char *s) { return s ? s : ""; }

void call_setter(FnIndex index, const Arg *args, int n) {
    Call call;
    call.args = args;
    call.nargs = n;
    run_library(kFnRows[index].fn, FnKind::Scalar, call);
}

Arg text_arg(const std::string &s) {
    Arg a;
    a.kind = Arg::Text;
    a.p = s.data();
    a.len = s.size();
    return a;
}

bool apply_variables(Applied &ap) {
    bool recompile = false;
    if (g_phonex != ap.phonex) {
        Arg a;
        a.kind = Arg::Int;
        a.i = g_phonex;
        call_setter(k_fuzzysetphonex, &a, 1);
        ap.phonex = g_phonex;
        recompile = true;
    }
    if (ap.isocode != str(g_isocode)) {
        ap.isocode = str(g_isocode);
        const Arg a = text_arg(ap.isocode);
        call_setter(k_fuzzysetisocode, &a, 1);
    }
    if (ap.open != str(g_span_open) || ap.close != str(g_span_close)) {
        ap.open = str(g_span_open);
        ap.close = str(g_span_close);
        const Arg a[2] = {text_arg(ap.open), text_arg(ap.close)};
        call_setter(k_fuzzysetspans, a, 2);
    }
    return recompile;
}

void set_variable(const char *name, const char *value) {
    set_config_option(name, value, PGC_USERSET, PGC_S_SESSION, GUC_ACTION_SET, true, 0, false);
}

}  // namespace

void sync_settings(const char *charset, size_t len) noexcept {
    if (!g_applied) return;
    try {
        bool recompile = apply_variables(*g_applied);
        if (charset && g_applied->charset.compare(0, std::string::npos, charset, len) != 0) {
            g_applied->charset.assign(charset, len);
            recompile = true;
        }
        if (recompile) BuildRecherche("");
    } catch (...) {
        // Memory is short: what was not applied is applied at the next call.
    }
}

void store_settings() {
    if (!g_applied) return;
    Applied &ap = *g_applied;
    const int phonex = Phonetiseur == PhonexNone ? 0 : 1;
    if (phonex != g_phonex) {
        char buf[16];
        std::snprintf(buf, sizeof buf, "%d", phonex);
        set_variable("udfkit.phonex", buf);
        ap.phonex = phonex;
        BuildRecherche("");
    }
    if (std::strcmp(IsoCode, str(g_isocode)) != 0) set_variable("udfkit.isocode", IsoCode);
    if (std::strcmp(str(SpanOpen), str(g_span_open)) != 0) set_variable("udfkit.span_open", str(SpanOpen));
    if (std::strcmp(str(SpanClose), str(g_span_close)) != 0)
        set_variable("udfkit.span_close", str(SpanClose));
    // The library holds these values already (when memory is short, the
    // next sync gives them to it once more).
    try {
        ap.isocode.assign(str(g_isocode));
        ap.open.assign(str(g_span_open));
        ap.close.assign(str(g_span_close));
    } catch (...) {
    }
}

void define_settings() noexcept {
    // The start values are the library's own (copied: the setters reuse
    // the library's buffers).
    static char *open0 = strdup(str(SpanOpen));
    static char *close0 = strdup(str(SpanClose));
    static Applied applied;
    try {
        applied.open = str(open0);
        applied.close = str(close0);
        g_applied = &applied;
    } catch (...) {
        // No memory at load: the settings stay the library's own.
    }
    DefineCustomIntVariable("udfkit.phonex", "Fuzzy search: 1 compares words by sound, 0 by letters.",
                            nullptr, &g_phonex, 1, INT_MIN, INT_MAX, PGC_USERSET, 0, nullptr,
                            nullptr, nullptr);
    DefineCustomStringVariable("udfkit.isocode", "Character set of the texts of the fuzzy search.",
                               nullptr, &g_isocode, "UTF-8", PGC_USERSET, 0, nullptr, nullptr,
                               nullptr);
    DefineCustomStringVariable("udfkit.span_open", "Fuzzy search: the opening highlight marker.",
                               nullptr, &g_span_open, open0, PGC_USERSET, 0, nullptr, nullptr,
                               nullptr);
    DefineCustomStringVariable("udfkit.span_close", "Fuzzy search: the closing highlight marker.",
                               nullptr, &g_span_close, close0, PGC_USERSET, 0, nullptr, nullptr,
                               nullptr);
    MarkGUCPrefixReserved("udfkit");
}

}  // namespace udfkit::pg

extern "C" PGDLLEXPORT void _PG_init(void);

extern "C" void _PG_init(void) {
    udfkit::pg::define_settings();
    // The date settings are read from the server's environment, once.
    _date_init();
}
