// Fuzzes GetTlvFromType. Input: type (2 bytes), stated-length adjustment (1 signed byte, added
// to the message size), value buffer size (1 byte), then the attribute sequence. The message and
// the value buffer are exact-size heap copies so that any out-of-bounds access is caught.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "messages/messages.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kHead = 4;
    if (size < kHead) return 0;
    const uint16_t type = static_cast<uint16_t>((data[0] << 8) | data[1]);
    const int32_t adjust = static_cast<int8_t>(data[2]);
    const size_t value_cap = size_t{data[3]} * 4;
    const std::vector<uint8_t> message(data + kHead, data + size);
    std::vector<uint8_t> value(value_cap);
    uint16_t value_len = 0xFFFF;
    const int32_t stated = static_cast<int32_t>(message.size()) + adjust;
    const int32_t offset = GetTlvFromType(type, message, stated, value, &value_len);
    // A found attribute lies past its own 4-byte header, and its value fits the buffer.
    if (offset != 0 && (offset < 4 || value_len > value_cap)) std::abort();
    if (offset == 0 && value_len != 0xFFFF) std::abort();
    return 0;
}
