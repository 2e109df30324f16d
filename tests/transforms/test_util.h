// test_util.h - shared helpers of the transforms tests.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/error_record.h"

namespace kp::transforms::test {

using ErrorBox = kp::test::Err;

// The UTF-16 text whose little-endian units are the bytes.
inline std::u16string text_of(const std::vector<uint8_t>& b) {
    std::u16string s(b.size() / 2, u'\0');
    for (std::size_t i = 0; i < s.size(); ++i)
        s[i] = static_cast<char16_t>(b[2 * i] | b[2 * i + 1] << 8);
    return s;
}

inline std::vector<uint8_t> random_bytes(std::size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (auto& b : v)
        b = static_cast<uint8_t>(rng());
    return v;
}

// Text-like bytes with binary stretches: compresses, but fills dictionaries.
inline std::vector<uint8_t> mixed_bytes(std::size_t n, uint32_t seed) {
    static const char* words[] = {"alpha ", "beta ",   "gamma ",   "delta\r\n", "epsilon ", "zeta ",
                                  "eta, ",  "theta. ", "iota ",    "kappa ",    "lambda ",  "mu ",
                                  "nu\r\n", "xi ",     "omicron ", "pi "};
    std::mt19937 rng(seed);
    std::vector<uint8_t> v;
    v.reserve(n);
    while (v.size() < n) {
        if (rng() % 16 == 0) {
            for (int k = rng() % 64; k > 0 && v.size() < n; --k)
                v.push_back(static_cast<uint8_t>(rng()));
        } else {
            for (const char* w = words[rng() % 16]; *w && v.size() < n; ++w)
                v.push_back(static_cast<uint8_t>(*w));
            if (rng() % 8 == 0 && v.size() < n) v.push_back(static_cast<uint8_t>('0' + rng() % 10));
        }
    }
    return v;
}

} // namespace kp::transforms::test
