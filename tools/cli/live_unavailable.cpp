// `wapiwps enroll`, `registrar`, `decode` and `replay` where the host is built without libpcap
// (Windows): the commands exist, say why they cannot run, and exit with the interface error code.
#include <cstdio>

#include "cli.h"

namespace cli {
namespace {

int unavailable(const char* command) {
    std::fprintf(stderr,
                 "wapiwps %s: live interfaces and capture files are read through libpcap, which "
                 "this build of wapiwps does not have; 'wapiwps demo' runs a whole exchange "
                 "without it\n",
                 command);
    return kExitLink;
}

}  // namespace

int run_enroll(const Options&) {
    return unavailable("enroll");
}

int run_registrar(const Options&) {
    return unavailable("registrar");
}

int run_decode(const Options&) {
    return unavailable("decode");
}

int run_replay(const Options&) {
    return unavailable("replay");
}

}  // namespace cli
