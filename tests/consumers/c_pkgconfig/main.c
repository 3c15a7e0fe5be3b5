/* A C host built against an installed wapiwps with nothing but `pkg-config --cflags --libs`. */
#include <stdio.h>
#include <string.h>

#include <wapiwps.h>

int main(void) {
    const char* version = WapiWps_Version();
    if (strcmp(version, WAPIWPS_VERSION_STRING) != 0 || StopWPS() != 1) {
        fprintf(stderr, "library %s, header %s\n", version, WAPIWPS_VERSION_STRING);
        return 1;
    }
    printf("wapiwps %s through pkg-config\n", version);
    return 0;
}
