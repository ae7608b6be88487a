// MD5 throughput against OpenSSL's MD5 in the same run, and calls per
// second of each anonymisation function with the shipped dictionaries.
#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <string>
#include <vector>

#include "host/testhost.hpp"
#include "udfkit/md5.h"
#include "udfkit/sqlfunc.h"

#if __has_include(<openssl/md5.h>)
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/md5.h>
#define HAVE_OPENSSL_MD5 1
#endif

using namespace udfkit::test;

namespace {

std::vector<unsigned char> input(size_t n) {
    std::vector<unsigned char> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 31 + 7);
    return v;
}

void BM_QXMD5(benchmark::State &state) {
    const auto data = input(static_cast<size_t>(state.range(0)));
    unsigned char digest[16];
    for (auto _ : state) {
        QXMD5(data.data(), static_cast<uint32_t>(data.size()), digest);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}
BENCHMARK(BM_QXMD5)->Arg(64)->Arg(1 << 20);

#ifdef HAVE_OPENSSL_MD5
void BM_OpenSSL_MD5(benchmark::State &state) {
    const auto data = input(static_cast<size_t>(state.range(0)));
    unsigned char digest[16];
    for (auto _ : state) {
        MD5(data.data(), data.size(), digest);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}
BENCHMARK(BM_OpenSSL_MD5)->Arg(64)->Arg(1 << 20);
#endif

// One anonymisation call per iteration through the in-memory host, cycling
// through a few inputs (each call re-seeds, so the input is what varies).
void run_calls(benchmark::State &state, udfkit_sqlfunc fn,
               const std::vector<std::vector<Value>> &argsets) {
    setenv("UDFKIT_DICT_DIR", UDFKIT_SOURCE_DIR "/data", 1);
    TestHost h;
    size_t k = 0;
    for (auto _ : state) {
        Outcome o = h.call(fn, argsets[k]);
        benchmark::DoNotOptimize(o);
        if (++k == argsets.size()) k = 0;
    }
    state.SetItemsProcessed(int64_t(state.iterations()));
}

void BM_anonymize_first(benchmark::State &state) {
    run_calls(state, anonymize_first,
              {{S("Jean"), I(0)}, {S("Marie"), I(1)}, {S("Camille"), I(2)}, {S("Zoé"), I(2)}});
}
void BM_anonymize_last(benchmark::State &state) {
    run_calls(state, anonymize_last, {{S("Dupont")}, {S("Le Gall")}, {S("Rousseau")}});
}
void BM_anonymize_letter(benchmark::State &state) {
    run_calls(state, anonymize_letter,
              {{S("Le client M. Dupond habite au 12 rue de la Paix a Paris."), S("abcdefghij")},
               {S("Rappeler avant jeudi."), S("xyz")}});
}
void BM_anonymize_nss(benchmark::State &state) {
    run_calls(state, anonymize_nss,
              {{S("1841275123456"), S("")}, {S("2910369387002"), S("")}, {S("1750633063117"), S("42")}});
}
void BM_anonymize_email(benchmark::State &state) {
    run_calls(state, anonymize_email,
              {{S("jean.dupont@example.fr")}, {S("marie.lefevre@example.fr")}});
}
BENCHMARK(BM_anonymize_first);
BENCHMARK(BM_anonymize_last);
BENCHMARK(BM_anonymize_letter);
BENCHMARK(BM_anonymize_nss);
BENCHMARK(BM_anonymize_email);

}  // namespace

BENCHMARK_MAIN();
