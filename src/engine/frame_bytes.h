// Bounded reads of a received frame: a byte beyond the frame's real length reads as 0, so a
// short frame takes the path it would take if the missing bytes were zero.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/engine.h"

inline uint8_t frame_byte(const uint8_t* frame, size_t frameLength, size_t offset) {
    return offset < frameLength ? frame[offset] : uint8_t{0};
}
inline uint16_t frame_be16(const uint8_t* frame, size_t frameLength, size_t offset) {
    return static_cast<uint16_t>((frame_byte(frame, frameLength, offset) << 8) |
                                 frame_byte(frame, frameLength, offset + 1));
}
inline uint32_t frame_be32(const uint8_t* frame, size_t frameLength, size_t offset) {
    return (uint32_t{frame_be16(frame, frameLength, offset)} << 16) |
           frame_be16(frame, frameLength, offset + 2);
}
// The machine's own order (little-endian on every target), for the fields read unconverted.
inline uint16_t frame_host16(const uint8_t* frame, size_t frameLength, size_t offset) {
    return static_cast<uint16_t>(frame_byte(frame, frameLength, offset) |
                                 (frame_byte(frame, frameLength, offset + 1) << 8));
}
inline bool frame_vendor_is(const uint8_t* frame, size_t frameLength, const uint8_t (&id)[3]) {
    for (size_t i = 0; i < 3; ++i)
        if (frame_byte(frame, frameLength, OFF_VENDOR_ID + i) != id[i]) return false;
    return true;
}
