// A C++ host built against wapiwps::wapiwps, from find_package or add_subdirectory.
#include <wapiwps.h>

#include <cstdio>
#include <string_view>

int main() {
    const std::string_view version = WapiWps_Version();
    if (version != WAPIWPS_VERSION_STRING || StopWPS() != 1) {
        std::fprintf(stderr, "library %s, header %s\n", version.data(), WAPIWPS_VERSION_STRING);
        return 1;
    }
    std::printf("wapiwps %s through %s\n", version.data(), CONSUMER_KIND);
    return 0;
}
