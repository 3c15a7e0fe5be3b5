// Byte-string helpers shared by every test program: the one hex decoder, appending and joining.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
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

inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) append(out, p);
    return out;
}

// Hex text (either case; spaces between pairs are skipped) to bytes; nullopt on anything else.
inline std::optional<Bytes> parse_hex(std::string_view text) {
    auto nibble = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    Bytes b;
    for (size_t i = 0; i < text.size();) {
        if (text[i] == ' ') {
            ++i;
            continue;
        }
        const int hi = nibble(text[i]), lo = i + 1 < text.size() ? nibble(text[i + 1]) : -1;
        if (hi < 0 || lo < 0) return std::nullopt;
        b.push_back(static_cast<uint8_t>(hi << 4 | lo));
        i += 2;
    }
    return b;
}

// Hex literals of the tests themselves: a malformed one is a mistake in the test.
inline Bytes hex(std::string_view text) {
    auto b = parse_hex(text);
    if (!b) std::abort();
    return *b;
}

}  // namespace testbytes
