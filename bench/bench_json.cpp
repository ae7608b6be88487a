// JSON parse throughput against RapidJSON's in-situ DOM parse, on three
// generated documents, and path lookups per second through
// jsonlib_extractobject.
//   build/bench_json --count ours|rapid DOC N   N parses of document DOC
//                                               (0, 1, 2), for callgrind
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <cinttypes>
#include <cmath>
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
                      "\"note\": \"caf\\u00e9 \\\"%d\\\" \\u20ac %" PRIuFAST32
                      " \\ud83d\\ude00 line\\nnext\", "
                      "\"tags\": [\"t%" PRIuFAST32 "\", \"vip\"], \"active\": %s, "
                      "\"score\": %" PRIuFAST32 ".%02" PRIuFAST32 "}",
                      i ? ",\n" : "", i, names[rng() % 6], names[rng() % 6], cities[rng() % 6], i,
                      rng() % 1000, rng() % 50, rng() % 2 ? "true" : "false", rng() % 1000,
                      rng() % 100);
        s += buf;
    }
    return s + "]";
}

// Integers, decimals and numbers with exponents in rows of ten.
std::string numbers_doc() {
    std::mt19937_64 rng(2);
    std::string s = "[";
    char buf[64];
    for (int row = 0; s.size() < kTarget; ++row) {
        s += row ? ",\n[" : "[";
        for (int k = 0; k < 10; ++k) {
            const uint64_t r = rng();
            const char *sep = k ? ", " : "";
            if (k % 3 == 0)
                std::snprintf(buf, sizeof buf, "%s%lld", sep,
                              static_cast<long long>(r % 2000000000) - 1000000000);
            else if (k % 3 == 1)
                std::snprintf(buf, sizeof buf, "%s%.6f", sep,
                              static_cast<double>(r % 100000000) / 1000.0 - 5000.0);
            else  // 1.2345e-07 ... -9.8765E+12
                std::snprintf(buf, sizeof buf, r % 2 ? "%s%.4e" : "%s%.5E", sep,
                              (static_cast<double>(r % 200001) - 100000.0) *
                                  std::pow(10.0, static_cast<int>(r >> 40) % 30 - 15));
            s += buf;
        }
        s += "]";
    }
    return s + "]";
}

// A configuration of sections nested up to 200 levels deep, about 1 MiB.
constexpr int kConfigDepth = 200;
void config_section(std::string &s, std::mt19937 &rng, int depth) {
    s += "{\"enabled\": true, \"level\": " + std::to_string(depth) +
         ", \"name\": \"section" + std::to_string(depth) + "\", \"limits\": [1, 2, 4, 8]";
    if (depth < kConfigDepth) {
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
    for (int i = 0; s.size() < kTarget / 2; ++i) {
        if (i) s += ",\n";
        config_section(s, rng, 1);
    }
    return s + "]}";
}

const std::string &doc(int which) {
    static const std::string docs[] = {records_doc(), numbers_doc(), config_doc()};
    return docs[which];
}

// One iteration of each side: copy the text into the buffer, parse it in
// place, free the tree.  Functions of their own (op_*), so that
// callgrind_percall.py gives the instructions of one parse.
[[gnu::noinline]] bool op_ours(const std::string &text, char *buf) {
    std::memcpy(buf, text.c_str(), text.size() + 1);
    JsonNode top{};
    char *end = parse_value(&top, nullptr, buf);
    benchmark::DoNotOptimize(top.v2.child);
    nx_json_free(top.v2.child);
    return end != nullptr;
}

[[gnu::noinline]] bool op_rapid(const std::string &text, char *buf) {
    std::memcpy(buf, text.c_str(), text.size() + 1);
    rapidjson::Document d;
    d.ParseInsitu(buf);
    benchmark::DoNotOptimize(&d);
    return !d.HasParseError();
}

template <bool (*Op)(const std::string &, char *)>
void parse_doc(benchmark::State &state) {
    const std::string &text = doc(static_cast<int>(state.range(0)));
    std::vector<char> buf(text.size() + 1);
    for (auto _ : state)
        if (!Op(text, buf.data())) state.SkipWithError("parse failed");
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

// N parses of one document by one side, nothing else, for an instruction
// count: callgrind_percall.py divides op_*'s instructions by its calls.
int count_parses(const char *side, int which, long n) {
    const bool rapid = std::strcmp(side, "rapid") == 0;
    if (!rapid && std::strcmp(side, "ours") != 0) return 2;
    const std::string &text = doc(which);
    std::vector<char> buf(text.size() + 1);
    for (long i = 0; i < n; ++i)
        if (!(rapid ? op_rapid : op_ours)(text, buf.data())) return 1;
    return 0;
}

}  // namespace

BENCHMARK(parse_doc<op_ours>)->Name("ours")->Arg(0)->Arg(1)->Arg(2)->ArgName("doc")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(parse_doc<op_rapid>)->Name("rapid")->Arg(0)->Arg(1)->Arg(2)->ArgName("doc")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(path_lookups);

int main(int argc, char **argv) {
    if (argc == 5 && std::strcmp(argv[1], "--count") == 0)
        return count_parses(argv[2], std::atoi(argv[3]), std::atol(argv[4]));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
