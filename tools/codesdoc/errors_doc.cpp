// docs/errors.md, generated from the table of check codes: one row per check, in table order.
#include "errors_doc.h"

#include <string>

#include "common/check_codes.h"

namespace codesdoc {
namespace {

const char* reason_name(uint32_t reason) {
    switch (reason) {
        case WAPIWPS_REASON_NONE:
            return "";
        case WAPIWPS_REASON_MALFORMED_FRAME:
            return "MALFORMED_FRAME";
        case WAPIWPS_REASON_OUT_OF_ORDER:
            return "OUT_OF_ORDER";
        case WAPIWPS_REASON_NOT_OURS:
            return "NOT_OURS";
        case WAPIWPS_REASON_AUTHENTICATOR:
            return "AUTHENTICATOR";
        case WAPIWPS_REASON_WRONG_PASSWORD:
            return "WRONG_PASSWORD";
        case WAPIWPS_REASON_SETTINGS:
            return "SETTINGS";
        case WAPIWPS_REASON_ATTRIBUTE:
            return "ATTRIBUTE";
        case WAPIWPS_REASON_KEY_AGREEMENT:
            return "KEY_AGREEMENT";
        case WAPIWPS_REASON_SECURE_CHIP:
            return "SECURE_CHIP";
        case WAPIWPS_REASON_CREDENTIAL:
            return "CREDENTIAL";
        case WAPIWPS_REASON_NO_RUN:
            return "NO_RUN";
        default:
            return "?";
    }
}

// A trace line as it reads in a table cell: without its line end, pipes escaped.
std::string cell(const char* text) {
    std::string out;
    for (const char* p = text; *p != '\0'; ++p) {
        if (*p == '\r' || *p == '\n') continue;
        if (*p == '|') out += '\\';
        out += *p;
    }
    return out;
}

// The value ProcessReceivePacket returns for a code: checkers' codes as their 16-bit pattern.
std::string returned_as(const CheckRow& row) {
    const std::string where = row.where;
    const bool checker = where == "Request/Identity" || where == "Start" || where == "EAP-Failure";
    if (checker) return std::to_string(WAPIWPS_CHECKER_BASE + row.code);
    if (row.id == CheckId::DropM7NotBuilt || row.id == CheckId::DropFragmentBounds)
        return "0 (NACK 18 sent)";
    if (where == "result" || row.code == -100) return std::to_string(row.code);
    return "0 (NACK 18 sent)";
}

}  // namespace

std::string errors_markdown() {
    std::string md =
        "# Result and check codes\n"
        "\n"
        "Generated from the table in `src/common/check_codes.h` by `wapiwps_codesdoc` (the\n"
        "`errors-doc` build target); a test fails when this file and the table disagree.\n"
        "\n"
        "`ProcessReceivePacket` returns the results 0, 1, 2, 100 and -100 and, for the checkers\n"
        "of Request/Identity, Start and EAP-Failure, `65536 + code`. A refused M2, M4, M6 or M8\n"
        "is answered with a NACK (Configuration Error 18) and result 0; its code, reason and "
        "trace\n"
        "line are then in `WapiWps_GetStatus`. Message-frame header codes (-101 ... -108) come "
        "from\n"
        "the check that runs before each of those parsers. Some codes are shared on purpose; the\n"
        "trace line tells the checks apart, and the first row of a code is what\n"
        "`WapiWps_ResultText` returns for it.\n"
        "\n"
        "| Code | Returned as | Where | Reason class | Trace line | Meaning |\n"
        "|---:|---|---|---|---|---|\n";
    for (const CheckRow& row : kCheckRows) {
        md += "| " + std::to_string(row.code) + " | " + returned_as(row) + " | " + row.where +
              " | " + reason_name(row.reason) + " | " +
              (row.trace[0] != '\0' ? "`" + cell(row.trace) + "`" : std::string()) + " | " +
              cell(row.text) + " |\n";
    }
    return md;
}

}  // namespace codesdoc
