// Byte-string helpers shared by every test program: hex text to bytes and appending.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

namespace testbytes {

using Bytes = std::vector<uint8_t>;

// Appends `tail` to `to`. Written with resize and memcpy: g++ 12 at -O3 reports false
// -Warray-bounds errors for vector::insert after a vector built from an initializer list.
inline void append(Bytes& to, std::span<const uint8_t> tail) {
    if (tail.empty()) return;
    const size_t at = to.size();
    to.resize(at + tail.size());
    std::memcpy(to.data() + at, tail.data(), tail.size());
}
inline void append(Bytes& to, std::string_view text) {
    append(to, std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

inline Bytes cat(std::initializer_list<std::span<const uint8_t>> parts) {
    Bytes out;
    for (auto p : parts) append(out, p);
    return out;
}

// Hex text to bytes; spaces are skipped. Test data only: anything else is a test-side mistake.
inline Bytes hex(std::string_view text) {
    auto nibble = [](char c) -> uint8_t {
        return static_cast<uint8_t>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
    };
    Bytes b;
    for (size_t i = 0; i + 1 < text.size();) {
        if (text[i] == ' ') {
            ++i;
            continue;
        }
        b.push_back(static_cast<uint8_t>(nibble(text[i]) << 4 | nibble(text[i + 1])));
        i += 2;
    }
    return b;
}

}  // namespace testbytes
