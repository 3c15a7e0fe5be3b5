// Byte order and bounded copies, shared by every subsystem. Wire numbers go through these
// helpers, never through pointer casts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

inline uint16_t get_be16(const uint8_t* p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }
inline uint32_t get_be32(const uint8_t* p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}
inline void put_be16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}
inline void put_be32(uint8_t* p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
}
// The machine's own byte order, for the few wire fields that are read or written unconverted on
// purpose (always little-endian on the targets we build for).
inline uint16_t get_host16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
inline void put_host16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

// Copies n bytes only if they lie inside src and fit in dst; otherwise copies nothing.
inline bool copy_bounded(std::span<uint8_t> dst, std::span<const uint8_t> src, size_t n) {
    if (n > src.size() || n > dst.size()) return false;
    if (n != 0) std::memmove(dst.data(), src.data(), n);
    return true;
}

// Length of a text field that is NUL-terminated when shorter than its capacity.
inline size_t field_strlen(const char* field, size_t capacity) {
    size_t n = 0;
    while (n < capacity && field[n] != '\0') ++n;
    return n;
}
inline size_t field_strlen(const uint8_t* field, size_t capacity) {
    return field_strlen(reinterpret_cast<const char*>(field), capacity);
}

// Overwrites key material so that it does not outlive its use on the stack. With GCC and Clang
// a plain memset followed by an empty assembly statement that may read the memory: the compiler
// must keep the stores, and they run at memset's speed rather than a byte at a time (this sits
// on the SMS4 path of every short message).
inline void secure_wipe(void* p, size_t n) {
#if defined(__GNUC__)
    std::memset(p, 0, n);
    __asm__ __volatile__("" : : "r"(p) : "memory");
#else
    volatile uint8_t* v = static_cast<volatile uint8_t*>(p);
    while (n--) *v++ = 0;
#endif
}
