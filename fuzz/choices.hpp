// The fuzzer's bytes as the choices of a generator, taken from the front;
// zeros once they run out, so that every input makes something.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzzgen {

class Choices {
public:
    Choices(const uint8_t *data, size_t size) : p_(data), end_(data + size) {}
    uint8_t byte() { return p_ < end_ ? *p_++ : 0; }
    // A number below n (n > 0), from as few bytes as hold n - 1.
    uint64_t below(uint64_t n) {
        uint64_t v = 0;
        for (uint64_t r = n - 1; r; r >>= 8) v = v << 8 | byte();
        return v % n;
    }
    // Any 64 bits.
    uint64_t word() {
        uint64_t v = 0;
        for (int i = 0; i < 8; ++i) v = v << 8 | byte();
        return v;
    }

private:
    const uint8_t *p_, *end_;
};

}  // namespace fuzzgen
