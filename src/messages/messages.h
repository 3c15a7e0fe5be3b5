// Message codec: the attribute (TLV) codec and one builder and one parser per message.
//
// Builders write a message body (attributes only) at `out`, set *outLength and return true (M7
// returns false when signing fails). Each builder's worst case is held against the output frame
// with a static_assert. Parsers take the body as a span of the bytes that really exist from the
// body's start (the reassembly buffer may hold more than the stated length) and the stated length;
// they return 0 or the code of the first failing check, and never read outside the span.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "messages/attributes.h"

// Appends one attribute at *cursor (type and the low 16 bits of length big-endian, then all
// `length` value bytes) and advances the cursor. The builder owns the buffer and its size.
void AddTlv(uint8_t** cursor, uint16_t type, const void* value, uint32_t length);

// Finds the first attribute of `type` in the first messageLength bytes of `readable` and copies
// its value to `value`. Returns 0 when absent or malformed, else the offset just past the found
// attribute. Keeps the walk's two intended quirks for bytes that exist (a last value may run up
// to 3 bytes past messageLength; a value whose length equals the remaining count is copied from
// its own length field). Returns 0 as well when the copy would read outside `readable` or write
// past `value`.
int32_t GetTlvFromType(uint16_t type, std::span<const uint8_t> readable, int32_t messageLength,
                       std::span<uint8_t> value, uint16_t* valueLength);

// Builders.
bool BuildMessageM1(uint8_t* out, uint32_t* outLength);
bool BuildMessageM3(uint8_t* out, uint32_t* outLength);
bool BuildMessageM5(uint8_t* out, uint32_t* outLength);
bool BuildMessageM7(uint8_t* out, uint32_t* outLength);
bool BuildMessageDone(uint8_t* out, uint32_t* outLength);
bool BuildMessageACK(uint8_t* out, uint32_t* outLength);
bool BuildMessageNACK(uint8_t* out, uint32_t* outLength, uint16_t configError);

// Parsers.
int32_t UnpackMessageM2(std::span<const uint8_t> readable, int32_t length);  // -18..-42
int32_t UnpackMessageM4(std::span<const uint8_t> readable, int32_t length);  // -43..-52
int32_t UnpackMessageM6(std::span<const uint8_t> readable, int32_t length);  // -53..-60
int32_t UnpackMessageM8(std::span<const uint8_t> readable, int32_t length);  // -59, -61..-72

// Converts `count` pairs of hex digits into bytes; -1 at the first non-digit (bytes before it
// stay written), 0 otherwise; count < 1 writes nothing.
int32_t HexToBytes(const char* text, uint8_t* out, int32_t count);

// Largest body each builder writes; the engine adds 18 header bytes and the 8-byte prefix.
constexpr size_t kMaxBodyLen = 2048 - 18 - 8;
