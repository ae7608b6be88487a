// Decimal runtime against GCC's software decimal128 (libgcc), on the same
// values: addition of 16-digit operands, reading and writing 20-character
// numbers, and the packed store and load.
//
//   build/bench_decimal                       the Google Benchmark run
//   build/bench_decimal --count NAME N        N calls of one operation, for
//                                             counting instructions per call
//                                             under callgrind (see RESULTS.md)
#include <benchmark/benchmark.h>

#include <decimal/decimal>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "udfkit/decimal.h"

namespace {

using d128 = std::decimal::decimal128;
constexpr int kValues = 64;

struct Data {
    std::vector<Decimal> dec;        // 16-digit operands
    std::vector<d128> d128s;         // the same values
    std::vector<std::string> texts;  // 20-character numbers
    std::vector<double> dbl;         // the same as doubles
    Data() {
        std::mt19937_64 rng(42);
        for (int i = 0; i < kValues; ++i) {
            // 16 significant digits, 0 to 8 of them after the point, either sign.
            long long coeff = static_cast<long long>(rng() % 9000000000000000ULL) + 1000000000000000LL;
            const int scale = static_cast<int>(rng() % 9);
            if (rng() % 2) coeff = -coeff;
            d128s.push_back(std::decimal::make_decimal128(coeff, -scale));
            std::string digits = std::to_string(coeff < 0 ? -coeff : coeff);
            digits.insert(digits.size() - static_cast<size_t>(scale), ".");
            if (coeff < 0) digits.insert(0, "-");
            Decimal d;
            _deccvasc(digits.c_str(), static_cast<int32_t>(digits.size()), &d);
            dec.push_back(d);
            // 20 characters: sign, 11 integer digits, point, 7 fraction digits.
            char t[32];
            std::snprintf(t, sizeof t, "%c%011llu.%07llu", rng() % 2 ? '-' : '1',
                          static_cast<unsigned long long>(rng() % 100000000000ULL),
                          static_cast<unsigned long long>(rng() % 10000000ULL));
            texts.emplace_back(t);
            dbl.push_back(std::strtod(t, nullptr));
        }
    }
};

const Data &data() {
    static const Data d;
    return d;
}

// decimal128 has no text conversion in libgcc: a text is read into it the
// way a program would, digit by digit with decimal128 arithmetic.
__attribute__((noinline)) d128 d128_from_text(const char *s) {
    d128 v = 0;
    bool neg = false, point = false;
    int scale = 0;
    for (; *s; ++s) {
        if (*s == '-') {
            neg = true;
        } else if (*s == '.') {
            point = true;
        } else if (*s >= '0' && *s <= '9') {
            v = v * 10 + (*s - '0');
            if (point) ++scale;
        }
    }
    v = v / std::decimal::make_decimal128(1LL, scale);
    return neg ? -v : v;
}

__attribute__((noinline)) d128 d128_add(const d128 &a, const d128 &b) { return a + b; }
__attribute__((noinline)) int32_t dec_add_call(const Decimal *a, const Decimal *b, Decimal *r) {
    return _decadd(a, b, r);
}

void BM_decadd_16digits(benchmark::State &st) {
    const auto &d = data();
    Decimal r;
    for (auto _ : st) {
        for (int i = 0; i < kValues; ++i) {
            _decadd(&d.dec[i], &d.dec[(i + 1) % kValues], &r);
            benchmark::DoNotOptimize(r);
        }
    }
    st.SetItemsProcessed(st.iterations() * kValues);
}
BENCHMARK(BM_decadd_16digits);

void BM_decimal128_add_16digits(benchmark::State &st) {
    const auto &d = data();
    d128 r;
    for (auto _ : st) {
        for (int i = 0; i < kValues; ++i) {
            r = d.d128s[i] + d.d128s[(i + 1) % kValues];
            benchmark::DoNotOptimize(r);
        }
    }
    st.SetItemsProcessed(st.iterations() * kValues);
}
BENCHMARK(BM_decimal128_add_16digits);

void BM_deccvasc_20chars(benchmark::State &st) {
    const auto &d = data();
    Decimal r;
    for (auto _ : st) {
        for (int i = 0; i < kValues; ++i) {
            _deccvasc(d.texts[i].c_str(), 20, &r);
            benchmark::DoNotOptimize(r);
        }
    }
    st.SetItemsProcessed(st.iterations() * kValues);
}
BENCHMARK(BM_deccvasc_20chars);

void BM_decimal128_from_text_20chars(benchmark::State &st) {
    const auto &d = data();
    for (auto _ : st) {
        for (int i = 0; i < kValues; ++i) {
            d128 r = d128_from_text(d.texts[i].c_str());
            benchmark::DoNotOptimize(r);
        }
    }
    st.SetItemsProcessed(st.iterations() * kValues);
}
BENCHMARK(BM_decimal128_from_text_20chars);

void BM_strtod_20chars(benchmark::State &st) {
    const auto &d = data();
    for (auto _ : st) {
        for (int i = 0; i < kValues; ++i) benchmark::DoNotOptimize(std::strtod(d.texts[i].c_str(), nullptr));
    }
    st.SetItemsProcessed(st.iterations() * kValues);
}
BENCHMARK(BM_strtod_20chars);

void BM_dectoasc_20chars(benchmark::State &st) {
    const auto &d = data();
    std::vector<Decimal> vals(kValues);
    for (int i = 0; i < kValues; ++i) _deccvasc(d.texts[i].c_str(), 20, &vals[i]);
    char field[20];
    for (auto _ : st) {
        for (int i = 0; i < kValues; ++i) {
            _dectoasc(&vals[i], field, 20, 7);
            benchmark::DoNotOptimize(field);
        }
    }
    st.SetItemsProcessed(st.iterations() * kValues);
}
BENCHMARK(BM_dectoasc_20chars);

void BM_snprintf_double_20chars(benchmark::State &st) {
    const auto &d = data();
    char field[32];
    for (auto _ : st) {
        for (int i = 0; i < kValues; ++i) {
            std::snprintf(field, sizeof field, "%20.7f", d.dbl[i]);
            benchmark::DoNotOptimize(field);
        }
    }
    st.SetItemsProcessed(st.iterations() * kValues);
}
BENCHMARK(BM_snprintf_double_20chars);

void BM_stdecimal(benchmark::State &st) {
    const auto &d = data();
    const int len = static_cast<int>(st.range(0));
    unsigned char buf[32];
    for (auto _ : st) {
        for (int i = 0; i < kValues; ++i) {
            _stdecimal(&d.dec[i], buf, len);
            benchmark::DoNotOptimize(buf);
        }
    }
    st.SetItemsProcessed(st.iterations() * kValues);
}
BENCHMARK(BM_stdecimal)->Arg(9)->Arg(17);

void BM_lddecimal(benchmark::State &st) {
    const auto &d = data();
    const int len = static_cast<int>(st.range(0));
    std::vector<unsigned char> packed(static_cast<size_t>(kValues * len));
    for (int i = 0; i < kValues; ++i) _stdecimal(&d.dec[i], &packed[static_cast<size_t>(i * len)], len);
    Decimal r;
    for (auto _ : st) {
        for (int i = 0; i < kValues; ++i) {
            _lddecimal(&packed[static_cast<size_t>(i * len)], len, &r);
            benchmark::DoNotOptimize(r);
        }
    }
    st.SetItemsProcessed(st.iterations() * kValues);
}
BENCHMARK(BM_lddecimal)->Arg(9)->Arg(17);

// N calls of one operation, nothing else, for an instruction count.
int count_calls(const char *name, long n) {
    const auto &d = data();
    Decimal r;
    char field[20];
    unsigned char buf[17];
    d128 x;
    const std::string op = name;
    for (long k = 0; k < n; ++k) {
        const int i = static_cast<int>(k % kValues), j = (i + 1) % kValues;
        if (op == "decadd") {
            dec_add_call(&d.dec[i], &d.dec[j], &r);
        } else if (op == "decimal128_add") {
            x = d128_add(d.d128s[i], d.d128s[j]);
        } else if (op == "deccvasc") {
            _deccvasc(d.texts[i].c_str(), 20, &r);
        } else if (op == "decimal128_from_text") {
            x = d128_from_text(d.texts[i].c_str());
        } else if (op == "dectoasc") {
            _dectoasc(&d.dec[i], field, 20, 7);
        } else if (op == "stdecimal") {
            _stdecimal(&d.dec[i], buf, 17);
        } else if (op == "lddecimal") {
            _stdecimal(&d.dec[i], buf, 17);
            _lddecimal(buf, 17, &r);
        } else {
            std::fprintf(stderr, "unknown operation %s\n", name);
            return 2;
        }
        benchmark::DoNotOptimize(r);
        benchmark::DoNotOptimize(x);
        benchmark::DoNotOptimize(field);
        benchmark::DoNotOptimize(buf);
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 4 && std::strcmp(argv[1], "--count") == 0)
        return count_calls(argv[2], std::atol(argv[3]));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
