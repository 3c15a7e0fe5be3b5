// The version extension export: the library's own version, from the same project(VERSION) as
// wapiwps_version.h, so a host can compare what it loaded with what it was built against.
#include "wapiwps.h"

extern "C" const char* WapiWps_Version(void) {
    return WAPIWPS_VERSION_STRING;
}
