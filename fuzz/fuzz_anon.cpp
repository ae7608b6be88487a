// Fuzzes the anonymisation functions (texts, alphabets, keys, and the
// contents of a dictionary file) and checks MD5 fed in pieces against the
// one-shot digest.
//
// Input: byte 0 picks the case, byte 1 the sex / split point, the rest is
// split in two at a 0xff byte (first part: text, second: alphabet, key or
// dictionary contents).
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <string>

#include "host/testhost.hpp"
#include "udfkit/md5.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

namespace {

const char *const kFiles[] = {"/dict.prenom.masculin.txt", "/dict.prenom.feminin.txt",
                              "/dict.nom.txt"};

char g_dir[64] = "/tmp/udfkit-fuzz-anon-XXXXXX";

void remove_dict_dir() {
    for (const char *f : kFiles) std::remove((std::string(g_dir) + f).c_str());
    rmdir(g_dir);
}

// A scratch dictionary folder, removed when the fuzzer exits.
std::string dict_dir() {
    static const bool made = [] {
        if (!mkdtemp(g_dir)) std::strcpy(g_dir, "/nonexistent");
        std::atexit(remove_dict_dir);
        return true;
    }();
    (void)made;
    return g_dir;
}

void write_file(const std::string &path, const std::string &content) {
    if (FILE *f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(content.data(), 1, content.size(), f);
        std::fclose(f);
    }
}

void check_result(const Outcome &o, size_t limit) {
    if (!o.exact(1)) abort();
    if (o.result().s.size() > limit) abort();
}

void check_md5(const uint8_t *data, size_t size, unsigned split) {
    unsigned char whole[16], parts[16];
    QXMD5(data, static_cast<uint32_t>(size), whole);
    QXMD5_CTX ctx;
    QXMD5Init(&ctx);
    const size_t step = split % 97 + 1;
    for (size_t at = 0; at < size; at += step) {
        const size_t n = size - at < step ? size - at : step;
        QXMD5Update(&ctx, data + at, static_cast<uint32_t>(n));
    }
    QXMD5Final(parts, &ctx);
    if (std::memcmp(whole, parts, 16) != 0) abort();
    for (size_t i = 0; i < sizeof ctx; ++i)
        if (reinterpret_cast<const unsigned char *>(&ctx)[i] != 0) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    const unsigned mode = data[0] % 6, param = data[1];
    const std::string rest(reinterpret_cast<const char *>(data + 2), size - 2);
    const size_t cut = rest.find('\xff');
    const std::string a = rest.substr(0, cut);
    const std::string b = cut == std::string::npos ? std::string() : rest.substr(cut + 1);

    TestHost h;
    switch (mode) {
    case 0:
        check_result(h.call(anonymize_letter, {S(a), S(b)}), a.size());
        break;
    case 1: {
        Outcome o = h.call(anonymize_nss, {S(a), S(b)});
        check_result(o, 79);
        break;
    }
    case 2: {
        Outcome o = h.call(anonymize_email, {S(a)});
        check_result(o, 1023 + 1 + std::strlen("anonyme.invalid"));
        if (o.result().s.find('@') == std::string::npos) abort();
        break;
    }
    case 3:
    case 4: {
        // b becomes the dictionary the pick reads.
        const std::string dir = dict_dir();
        setenv("UDFKIT_DICT_DIR", dir.c_str(), 1);
        const char *file = mode == 4 ? kFiles[2] : param % 3 == 0 ? kFiles[0] : kFiles[1];
        write_file(dir + file, b);
        Outcome o = mode == 4 ? h.call(anonymize_last, {S(a)})
                              : h.call(anonymize_first, {S(a), I(param % 3)});
        check_result(o, 255);
        break;
    }
    default:
        check_md5(data + 2, size - 2, param);
        break;
    }
    return 0;
}
