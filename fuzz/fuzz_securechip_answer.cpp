// Fuzzes the secure-chip client's answer checks. The input is one answer as read from the pipe
// (at most 6,144 bytes are kept, as the client's read does); it is copied into the zeroed
// 1,024-byte (command 7) and 56-byte (command 4) views the client keeps, and both checks must
// either fail leaving the 48-byte output untouched or fill it from bytes that really arrived.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "signing/securechip.h"

namespace {

void check(const uint8_t* data, size_t size, size_t view_len, bool export_answer) {
    const size_t received = size < kChipReceiveBufLen ? size : kChipReceiveBufLen;
    std::vector<uint8_t> view(view_len, 0);
    std::memcpy(view.data(), data, received < view_len ? received : view_len);
    std::vector<uint8_t> out(kChipPublicKeyLen, 0xEE);
    const int32_t r = export_answer
                          ? chip_parse_export_answer(view.data(), view.size(), received, out.data())
                          : chip_parse_sign_answer(view.data(), view.size(), received, out.data());
    if (r != 0 && r != -1) std::abort();
    if (r == -1) {
        for (uint8_t b : out)
            if (b != 0xEE) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    check(data, size, kChipExportCopyLen, true);
    check(data, size, kChipSignCopyLen, false);
    return 0;
}
