// wapiwps_codesdoc: writes docs/errors.md (or standard output) from the table of check codes.
#include <cstdio>
#include <string>

#include "errors_doc.h"

int main(int argc, char** argv) {
    const std::string md = codesdoc::errors_markdown();
    if (argc < 2) {
        std::fputs(md.c_str(), stdout);
        return 0;
    }
    std::FILE* f = std::fopen(argv[1], "wb");
    if (f == nullptr || std::fwrite(md.data(), 1, md.size(), f) != md.size()) {
        std::fprintf(stderr, "wapiwps_codesdoc: cannot write %s\n", argv[1]);
        if (f != nullptr) std::fclose(f);
        return 1;
    }
    return std::fclose(f) == 0 ? 0 : 1;
}
