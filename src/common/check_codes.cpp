// Lookups over the table of check codes, and the record of the last failed check.
#include "common/check_codes.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/platform.h"

namespace {

// The last failed check: plain globals with constant initialisation, like the context.
constexpr size_t kLineMax = 128;
const CheckRow* g_FailedCheck = nullptr;
char g_FailedCheckLine[kLineMax] = {};

}  // namespace

const CheckRow* find_check_code(int32_t code) {
    for (const CheckRow& row : kCheckRows)
        if (row.code == code) return &row;
    return nullptr;
}

int32_t fail_check(CheckId id, ...) {
    const CheckRow& row = check_row(id);
    g_FailedCheck = &row;
    g_FailedCheckLine[0] = '\0';
    if (row.trace[0] == '\0') return row.code;
    char line[kLineMax * 2];
    va_list args;
    va_start(args, id);
    std::vsnprintf(line, sizeof line, row.trace, args);
    va_end(args);
    trace("%s", line);
    // Kept without its line end, cut to the record's size.
    size_t n = std::strcspn(line, "\r\n");
    if (n >= kLineMax) n = kLineMax - 1;
    std::memcpy(g_FailedCheckLine, line, n);
    g_FailedCheckLine[n] = '\0';
    return row.code;
}

void clear_failed_check() {
    g_FailedCheck = nullptr;
    g_FailedCheckLine[0] = '\0';
}

const CheckRow* last_failed_check() {
    return g_FailedCheck;
}

const char* last_failed_check_line() {
    return g_FailedCheckLine;
}
