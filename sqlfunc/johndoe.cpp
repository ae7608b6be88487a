// Anonymisation of personal data: first names, surnames, free text,
// social-security numbers and e-mail addresses are replaced by plausible
// false values.
//
// Every function seeds the C library's 48-bit generator (srand48) from its
// own input before it draws anything, so one input always gives the same
// output, whatever ran before: a value is replaced the same way wherever it
// occurs.  The generator is process-wide and re-seeded at every call; the
// host calls these functions one at a time.
//
// Names are picked from three dictionary files, read at each call and never
// written.  They live in /etc/default, or in the folder named by the
// environment variable UDFKIT_DICT_DIR when it is set and not empty.  When a
// dictionary cannot be used the input is masked with a fixed letter.
#include <strings.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sqlfunc/hostcall.hpp"
#include "udfkit/md5.h"
#include "udfkit/sqlfunc.h"

#ifndef UDFKIT_DICT_DIR_DEFAULT
#define UDFKIT_DICT_DIR_DEFAULT "/etc/default"
#endif

namespace {

constexpr int32_t kNameCap = 256;
constexpr int32_t kAlphabetCap = 80;
constexpr int32_t kNssCap = 80;
constexpr int32_t kKeyCap = 100;
constexpr int32_t kEmailCap = 1024;
constexpr size_t kNssLength = 13;
// Dictionary lines are read at most 255 bytes at a time.
constexpr int kLineBuffer = 256;

const char kMasculineFile[] = "dict.prenom.masculin.txt";
const char kFeminineFile[] = "dict.prenom.feminin.txt";
const char kSurnameFile[] = "dict.nom.txt";

const char kNssAlphabet[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
const char kEmailAlphabet[] = "0123456789abcdefghijklmnopqrstuvwxyz._";
// Addresses are rewritten to a reserved domain that can never deliver mail.
const char kEmailDomain[] = "anonyme.invalid";

// The seed of a text: the text itself when it is a whole non-zero base-10
// number, otherwise a 4-bit shift-and-or of its bytes (up to the first at
// sign) over the value of its leading digits.
long text_seed(const char *text) noexcept {
    char *end = nullptr;
    const long long v = std::strtoll(text, &end, 10);
    if (v != 0 && end && *end == '\0') return static_cast<long>(v);
    uint64_t h = static_cast<uint64_t>(v);
    for (const char *p = text; *p && *p != '@'; ++p) {
        const int64_t c = static_cast<signed char>(*p) - 32;  // may be negative
        h = (h << 4) | static_cast<uint64_t>(c);
    }
    return static_cast<long>(h);
}

// Replaces every non-blank character of s by a random character of the
// alphabet of length n.  An empty alphabet (n 0) yields its terminator, so
// the text ends before its first non-blank character.
void scramble(char *s, const char *alphabet, size_t n) noexcept {
    const size_t len = std::strlen(s);
    for (size_t i = 0; i < len; ++i) {
        if (s[i] == ' ') continue;
        // drand48() < 1, so the index stays below n (0 for an empty alphabet).
        s[i] = alphabet[static_cast<size_t>(static_cast<double>(n) * drand48())];
    }
}

// The full path of a dictionary; false when it does not fit.
bool dict_path(char *out, size_t cap, const char *file) noexcept {
    const char *dir = std::getenv("UDFKIT_DICT_DIR");
    if (!dir || !*dir) dir = UDFKIT_DICT_DIR_DEFAULT;
    const int n = std::snprintf(out, cap, "%s/%s", dir, file);
    return n > 0 && static_cast<size_t>(n) < cap;
}

struct File {
    explicit File(const char *path) noexcept : f(std::fopen(path, "r")) {}
    ~File() {
        if (f) std::fclose(f);
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    FILE *f;
};

// True when the dictionary holds a line that begins with name (compared
// without regard to case over the name's length) followed by "|" or a line
// feed.  Draws no random number.
bool listed_in(const char *name, const char *file) noexcept {
    char path[4096];
    if (!dict_path(path, sizeof path, file)) return false;
    File d(path);
    if (!d.f) return false;
    const size_t len = std::strlen(name);  // < kLineBuffer: popped with capacity 256
    char line[kLineBuffer];
    while (std::fgets(line, sizeof line, d.f)) {
        // Equal over len bytes means line holds len non-NUL bytes, so
        // line[len] is inside the buffer.
        if (strncasecmp(line, name, len) == 0 && (line[len] == '|' || line[len] == '\n'))
            return true;
    }
    return false;
}

}  // namespace

namespace udfkit {

// Picks a name from a dictionary after the generator has been seeded: a
// random byte position, the rest of its line skipped, the next line taken
// up to its first "|" or line feed.  out must hold kLineBuffer bytes; it
// is written only on success.  Returns 0, or -1 when the file cannot be
// opened, is shorter than 100 bytes, or the pick runs into its end.
int Anonymize(char *out, const char *path) noexcept {
    File d(path);
    if (!d.f) return -1;
    if (std::fseek(d.f, 0, SEEK_END) != 0) return -1;
    const long size = std::ftell(d.f);
    if (size < 0) return -1;
    const double r = drand48();
    const long pos = static_cast<long>(static_cast<double>(size - 100) * r);
    if (std::fseek(d.f, pos, SEEK_SET) != 0) return -1;
    char line[kLineBuffer];
    if (!std::fgets(line, sizeof line, d.f)) return -1;  // remainder of the line hit
    if (!std::fgets(line, sizeof line, d.f)) return -1;
    const size_t n = std::strcspn(line, "|\n");
    std::memcpy(out, line, n);
    out[n] = '\0';
    return 0;
}

}  // namespace udfkit

namespace {

// Picks from the named dictionary into buf (kNameCap bytes), or masks buf.
void pick_or_mask(char *buf, const char *file, char mask) noexcept {
    char path[4096];
    if (dict_path(path, sizeof path, file) && udfkit::Anonymize(buf, path) == 0) return;
    const char letter[2] = {mask, '\0'};
    scramble(buf, letter, 1);
}

}  // namespace

static_assert(kNameCap >= kLineBuffer, "a picked line must fit the name buffer");

extern "C" {

UDFKIT_API void anonymize_first(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                                int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, 20)) return;
    int32_t sex = 0;
    t->PopInt(&sex);
    char name[kNameCap];
    udfkit::pop_into(t, name);
    srand48(text_seed(name));
    // 0 masculine, 2 undetermined (guessed from the feminine dictionary),
    // anything else feminine.
    bool feminine = sex != 0;
    if (sex == 2) feminine = listed_in(name, kFeminineFile);
    pick_or_mask(name, feminine ? kFeminineFile : kMasculineFile, feminine ? 'X' : 'Y');
    t->PushString(name);
}

UDFKIT_API void anonymize_last(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                               int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, 50)) return;
    char name[kNameCap];
    udfkit::pop_into(t, name);
    srand48(text_seed(name));
    pick_or_mask(name, kSurnameFile, 'Z');
    t->PushString(name);
}

UDFKIT_API void anonymize_letter(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                                 int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_arg1(t, nargs, args, rtype, rsize)) return;
    udfkit::guarded([&] {
        char alphabet[kAlphabetCap];
        udfkit::pop_into(t, alphabet);
        // Short texts stay in the object, longer ones go to the heap: a
        // host's worker thread may have a small stack.
        udfkit::PoppedText text(t);
        srand48(text_seed(text.c_str()));
        scramble(text.data(), alphabet, std::strlen(alphabet));
        t->PushString(text.c_str());
    });
}

UDFKIT_API void anonymize_nss(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                              int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_arg1(t, nargs, args, rtype, rsize)) return;
    char key[kKeyCap];
    udfkit::pop_into(t, key);
    char number[kNssCap];
    udfkit::pop_into(t, number);

    if (std::strlen(number) != kNssLength) {
        t->PushString(number);
        return;
    }
    if (key[0] != '\0') {
        // The first character, then the key's low 32 bits in hexadecimal.
        const uint32_t k = static_cast<uint32_t>(std::strtoll(key, nullptr, 10));
        char out[32];
        std::snprintf(out, sizeof out, "%c%12x", number[0], static_cast<unsigned>(k));
        t->PushString(out);
        return;
    }
    srand48(text_seed(number));
    number[0] = '0';
    scramble(number + 1, kNssAlphabet, sizeof kNssAlphabet - 1);
    t->PushString(number);
}

UDFKIT_API void anonymize_email(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                                int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_arg1(t, nargs, args, rtype, rsize)) return;
    // A full local part, the at sign and the domain.
    char address[kEmailCap + sizeof kEmailDomain];
    udfkit::pop_into(t, address, kEmailCap);
    const size_t len = std::strlen(address);

    unsigned char digest[16];
    QXMD5(reinterpret_cast<const unsigned char *>(address), static_cast<uint32_t>(len), digest);
    uint64_t seed = 0;
    for (int i = 7; i >= 0; --i) seed = (seed << 8) | digest[i];
    srand48(static_cast<long>(seed));

    if (char *at = std::strchr(address, '@')) *at = '\0';
    scramble(address, kEmailAlphabet, sizeof kEmailAlphabet - 1);
    const size_t local = std::strlen(address);
    address[local] = '@';
    std::memcpy(address + local + 1, kEmailDomain, sizeof kEmailDomain);
    t->PushString(address);
}

}  // extern "C"
