/* A minimal host written in C: proves that wapiwps.h compiles as C and that the shared library's
 * exports are callable through it. Exits 0 on success, 1 with a message on the first failure. */
#include <stdio.h>
#include <string.h>

#include "wapiwps.h"

static int g_failures = 0;
static int g_lines = 0;

#define CHECK(cond)                                                                  \
    do {                                                                             \
        if (!(cond)) {                                                               \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            ++g_failures;                                                            \
        }                                                                            \
    } while (0)

static void on_trace(void* context, const char* line) {
    (void)line;
    ++*(int*)context;
}

int main(void) {
    static const uint8_t uuid[16] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88,
                                     0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x00};
    static const wapiwps_utf16 name[] = {'C', '-', 'h', 'o', 's', 't', 0};
    static const uint8_t local_mac[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
    static const uint8_t peer_mac[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x02};
    /* Peer address, prefix type 0x89 0x1B, then EAPOL v2 Start with an empty body. */
    static const uint8_t expected_start[12] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x02,
                                               0x89, 0x1B, 0x02, 0x01, 0x00, 0x00};
    static uint8_t out[WAPIWPS_MAX_FRAME_LEN];
    static const uint8_t junk[3] = {0x02, 0x00, 0x00};
    uint32_t out_len = 0xFFFFFFFFu;
    int32_t result;

    /* The library loaded is the version of the header. */
    CHECK(strcmp(WapiWps_Version(), WAPIWPS_VERSION_STRING) == 0);
    CHECK(WapiWps_SetTraceCallback(on_trace, &g_lines, 0) == 0);
    SetDeviceInfo(uuid, name);

    /* A real start in MAC mode: the 12-byte prefixed EAPOL-Start. */
    CHECK(StartWPS(local_mac, WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WAPI_PSK, peer_mac, "12345670", out,
                   &out_len) == 1);
    CHECK(out_len == sizeof(expected_start));
    CHECK(memcmp(out, expected_start, sizeof(expected_start)) == 0);
    CHECK(g_lines > 0);

    /* A frame too short for an EAPOL header is refused, not answered. */
    result = ProcessReceivePacket(junk, sizeof(junk), out, &out_len);
    CHECK(result != WAPIWPS_RESULT_ACCEPTED && result != WAPIWPS_RESULT_M8_DONE &&
          result != WAPIWPS_RESULT_SUCCESS);
    CHECK(out_len == 0);

    /* The status extension: the run is on, and the last frame was refused. */
    {
        WapiWpsStatus status;
        status.size = sizeof(status);
        CHECK(WapiWps_GetStatus(&status) == 0);
        CHECK(status.state == WAPIWPS_WAIT_REQUEST_IDENTITY);
        CHECK(status.outcome == WAPIWPS_OUTCOME_RUNNING);
        CHECK(status.lastResult == result);
    }

    CHECK(StopWPS() == 1);
    CHECK(WapiWps_SetTraceCallback(NULL, NULL, 0) == 0);

    if (g_failures != 0) return 1;
    printf("C host: %d trace lines, all checks passed\n", g_lines);
    return 0;
}
