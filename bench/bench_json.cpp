// JSON parse throughput against RapidJSON's in-situ DOM parse, on three
// generated documents, and path lookups per second through
// jsonlib_extractobject.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "udfkit/json.h"
#include "udfkit/sqlfunc.h"

namespace {

constexpr size_t kTarget = 2 << 20;  // about 2 MiB per document

// Records with plain strings and \u escapes.
std::string records_doc() {
    std::mt19937 rng(1);
    const char *cities[] = {"Paris", "Lyon", "Marseille", "Bordeaux", "Lille", "Nantes"};
    const char *names[] = {"Dupont", "Lef\\u00e8vre", "Martin", "\\u00c9lodie", "Bernard", "M\\u00fcller"};
    std::string s = "[";
    char buf[512];
    for (int i = 0; s.size() < kTarget; ++i) {
        std::snprintf(buf, sizeof buf,
                      "%s{\"id\": %d, \"name\": \"%s %s\", \"city\": \"%s\", "
                      "\"note\": \"caf\\u00e9 \\\"%d\\\" \\u20ac %u \\ud83d\\ude00 line\\nnext\", "
                      "\"tags\": [\"t%u\", \"vip\"], \"active\": %s, \"score\": %u.%02u}",
                      i ? ",\n" : "", i, names[rng() % 6], names[rng() % 6], cities[rng() % 6], i,
                      rng() % 1000, rng() % 50, rng() % 2 ? "true" : "false", rng() % 1000,
                      rng() % 100);
        s += buf;
    }
    return s + "]";
}

// Integers and decimals in rows of ten.
std::string numbers_doc() {
    std::mt19937_64 rng(2);
    std::string s = "[";
    char buf[64];
    for (int row = 0; s.size() < kTarget; ++row) {
        s += row ? ",\n[" : "[";
        for (int k = 0; k < 10; ++k) {
            const uint64_t r = rng();
            if (k % 2)
                std::snprintf(buf, sizeof buf, "%s%lld", k ? ", " : "",
                              static_cast<long long>(r % 2000000000) - 1000000000);
            else
                std::snprintf(buf, sizeof buf, "%s%.6f", k ? ", " : "",
                              static_cast<double>(r % 100000000) / 1000.0 - 5000.0);
            s += buf;
        }
        s += "]";
    }
    return s + "]";
}

// A configuration of sections nested up to 48 levels deep.
void config_section(std::string &s, std::mt19937 &rng, int depth) {
    s += "{\"enabled\": true, \"level\": " + std::to_string(depth) +
         ", \"name\": \"section" + std::to_string(depth) + "\", \"limits\": [1, 2, 4, 8]";
    if (depth < 48) {
        s += ", \"child\": ";
        config_section(s, rng, depth + 1);
        if (rng() % 4 == 0) {
            s += ", \"other\": {\"path\": \"/etc/x\", \"retry\": " + std::to_string(rng() % 9) + "}";
        }
    }
    s += "}";
}
std::string config_doc() {
    std::mt19937 rng(3);
    std::string s = "{\"version\": 3, \"profiles\": [";
    for (int i = 0; s.size() < kTarget; ++i) {
        if (i) s += ",\n";
        config_section(s, rng, 1);
    }
    return s + "]}";
}

const std::string &doc(int which) {
    static const std::string docs[] = {records_doc(), numbers_doc(), config_doc()};
    return docs[which];
}

void ours(benchmark::State &state) {
    const std::string &text = doc(static_cast<int>(state.range(0)));
    std::vector<char> buf(text.size() + 1);
    for (auto _ : state) {
        std::memcpy(buf.data(), text.c_str(), text.size() + 1);
        JsonNode top{};
        char *end = parse_value(&top, nullptr, buf.data());
        if (!end) state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(top.v2.child);
        nx_json_free(top.v2.child);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void rapid(benchmark::State &state) {
    const std::string &text = doc(static_cast<int>(state.range(0)));
    std::vector<char> buf(text.size() + 1);
    for (auto _ : state) {
        std::memcpy(buf.data(), text.c_str(), text.size() + 1);
        rapidjson::Document d;
        d.ParseInsitu(buf.data());
        if (d.HasParseError()) state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(&d);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// A minimal host: one parser number and one path on the stack per call.
struct MiniHost {
    int32_t parser = 0;
    const char *path = "";
    bool path_popped = false;
    int64_t results = 0;
} g_host;

int32_t peek_len() { return static_cast<int32_t>(std::strlen(g_host.path) + 1); }
void pop_string(char *buf, int32_t cap) {
    std::snprintf(buf, static_cast<size_t>(cap), "%s", g_host.path);
}
void pop_int(int32_t *v) { *v = g_host.parser; }
void push_long(int64_t) { ++g_host.results; }
void push_int(int32_t) { ++g_host.results; }
void push_double(double) { ++g_host.results; }
void push_string(const char *) { ++g_host.results; }

HostCallTable mini_table() {
    HostCallTable t{};
    t.PeekStringLength = peek_len;
    t.PopString = pop_string;
    t.PopInt = pop_int;
    t.PushLong = push_long;
    t.PushInt = push_int;
    t.PushDouble = push_double;
    t.PushString = push_string;
    return t;
}

void path_lookups(benchmark::State &state) {
    const HostCallTable t = mini_table();
    g_host.path = doc(0).c_str();
    jsonlib_createparser(&t, 1, nullptr, nullptr, nullptr);  // parser 0
    // Paths into the first hundred records.
    std::vector<std::string> paths;
    const char *fields[] = {".name", ".city", ".score", ".tags[1]", ".id", ".active"};
    for (int i = 0; i < 600; ++i)
        paths.push_back("$[" + std::to_string(i / 6) + "]" + fields[i % 6]);
    size_t k = 0;
    for (auto _ : state) {
        g_host.path = paths[k++ % paths.size()].c_str();
        jsonlib_extractobject(&t, 2, nullptr, nullptr, nullptr);
    }
    g_host.parser = 0;
    jsonlib_freeparser(&t, 1, nullptr, nullptr, nullptr);
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(ours)->Arg(0)->Arg(1)->Arg(2)->ArgName("doc")->Unit(benchmark::kMillisecond);
BENCHMARK(rapid)->Arg(0)->Arg(1)->Arg(2)->ArgName("doc")->Unit(benchmark::kMillisecond);
BENCHMARK(path_lookups);

BENCHMARK_MAIN();
