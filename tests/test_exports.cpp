// The shared library exports exactly the interface: every SQL-callable
// function of the library's function table, every other name listed in
// tests/exports/*.txt, and nothing else.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>

#include "udfkit/sqlfunc.h"

namespace {

std::set<std::string> listed() {
    std::set<std::string> names;
    for (const auto &e : std::filesystem::directory_iterator(UDFKIT_SOURCE_DIR "/tests/exports")) {
        if (e.path().extension() != ".txt") continue;
        std::ifstream in(e.path());
        std::string line;
        while (std::getline(in, line))
            if (!line.empty() && line[0] != '#' && !names.insert(line).second)
                ADD_FAILURE() << "named twice: " << line;
    }
#define UDFKIT_NAME(name, ...) \
    if (!names.insert(#name).second) ADD_FAILURE() << "named twice: " #name;
    UDFKIT_ALL_SQLFUNCS(UDFKIT_NAME)
#undef UDFKIT_NAME
    return names;
}

std::set<std::string> exported() {
    std::set<std::string> names;
    std::string cmd = "nm -D --defined-only " UDFKIT_SHARED_LIBRARY;
    FILE *p = popen(cmd.c_str(), "r");
    if (!p) return names;
    char line[1024];
    while (std::fgets(line, sizeof line, p)) {
        char addr[64], kind[8], name[900];
        if (std::sscanf(line, "%63s %7s %899s", addr, kind, name) != 3) continue;
        std::string n = name;
        if (auto at = n.find('@'); at != std::string::npos) n.resize(at);
        // Symbols of the C++ runtime, the linker and AddressSanitizer are not ours.
        static const std::regex theirs("_Z[NTS].*|_init|_fini|__bss_start|_edata|_end|__odr_asan.*");
        if (!std::regex_match(n, theirs)) names.insert(n);
    }
    pclose(p);
    return names;
}

TEST(Exports, ExactlyTheInterface) {
    const auto want = listed(), have = exported();
    ASSERT_FALSE(have.empty()) << "could not list " UDFKIT_SHARED_LIBRARY;
    for (const auto &n : want) EXPECT_TRUE(have.count(n)) << "not exported: " << n;
    for (const auto &n : have) EXPECT_TRUE(want.count(n)) << "exported but not interface: " << n;
}

}  // namespace
