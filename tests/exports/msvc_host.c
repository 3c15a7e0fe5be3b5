/* A host built the way an MSVC project builds one: clang-cl for the x86_64-pc-windows-msvc target,
 * linked by lld-link against the MSVC import library wapiwps.lib. No MSVC headers or C runtime
 * exist on the build machine, so this host uses none: freestanding C, its own entry point and
 * three kernel32 functions. It runs the start of a WAPI exchange through the C ABI:
 * EAPOL-Start, Response/Identity to a Request/Identity, then StopWPS (the later steps are the
 * same calls, pinned byte for byte by the exchange tests). */
#include "wapiwps.h"

typedef void* HANDLE;
__declspec(dllimport) HANDLE __stdcall GetStdHandle(unsigned long which);
__declspec(dllimport) int __stdcall WriteFile(HANDLE file, const void* data, unsigned long size,
                                              unsigned long* written, void* overlapped);
__declspec(dllimport) void __stdcall ExitProcess(unsigned int code);

static uint8_t g_out[WAPIWPS_MAX_FRAME_LEN];

static void say(const char* text) {
    unsigned long n = 0, written = 0;
    while (text[n] != 0) ++n;
    WriteFile(GetStdHandle((unsigned long)-11), text, n, &written, 0);
}

static int same(const uint8_t* a, const uint8_t* b, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) {
        if (a[i] != b[i]) return 0;
    }
    return 1;
}

static void fail(const char* what) {
    say("MSVC-mode host: ");
    say(what);
    say("\r\n");
    ExitProcess(1);
}

void host_main(void) {
    static const uint8_t uuid[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    static const wapiwps_utf16 name[] = {'M', 'S', 'V', 'C', 0};
    static const uint8_t local_mac[6] = {0x02, 0, 0, 0, 0, 0x01};
    static const uint8_t peer_mac[6] = {0x02, 0, 0, 0, 0, 0x02};
    static const uint8_t prefix[8] = {0x02, 0, 0, 0, 0, 0x02, 0x89, 0x1B};
    /* EAPOL v1 EAP packet, body 5 | EAP Request, id 7, length 5, type Identity */
    static const uint8_t request_identity[9] = {0x01, 0x00, 0x00, 0x05, 0x01, 0x07, 0x00, 0x05, 0x01};
    /* EAPOL v2 EAP packet, body 36 | EAP Response, id 7, length 36, type Identity, the text */
    static const uint8_t response_identity[9] = {0x02, 0x00, 0x00, 0x24, 0x02, 0x07, 0x00, 0x24, 0x01};
    static const char identity[] = "BWIPS-SimpleConfig-Enrollee-1-0";
    const char* version = WapiWps_Version();
    uint32_t out_len = 0;

    if (!same((const uint8_t*)version, (const uint8_t*)WAPIWPS_VERSION_STRING,
              sizeof WAPIWPS_VERSION_STRING)) fail("WapiWps_Version differs from the header");
    SetDeviceInfo(uuid, name);
    if (StartWPS(local_mac, WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WAPI_PSK, peer_mac, "12345670", g_out,
                 &out_len) != 1 || out_len != 12 || !same(g_out, prefix, 8)) fail("StartWPS");
    if (ProcessReceivePacket(request_identity, sizeof request_identity, g_out, &out_len) !=
            WAPIWPS_RESULT_ACCEPTED || out_len != 8 + 9 + 31 || !same(g_out + 8, response_identity, 9) ||
        !same(g_out + 17, (const uint8_t*)identity, 31)) fail("Response/Identity");
    if (StopWPS() != 1) fail("StopWPS");
    say("MSVC-mode host: EAPOL-Start and Response/Identity through wapiwps.lib, wapiwps ");
    say(version);
    say("\r\n");
    ExitProcess(0);
}
