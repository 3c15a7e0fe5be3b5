// `wapiwps`: the command-line host of the enrollee library.
#include <cstdio>

#include "cli.h"
#include "wapiwps.h"

int main(int argc, char** argv) {
    using namespace cli;
    // Progress lines appear as the exchange advances, also when stdout is a pipe.
    // (The Windows C runtime has no line buffering: unbuffered there.)
#if defined(_WIN32)
    std::setvbuf(stdout, nullptr, _IONBF, 0);
#else
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
#endif
    std::vector<std::string> args(argv + 1, argv + argc);
    Options opt;
    std::string error;
    if (!parse_options(args, opt, error)) {
        std::fprintf(stderr, "wapiwps: %s\n%s", error.c_str(), usage_text(opt.command));
        return kExitUsage;
    }
    if (opt.version) {
        std::printf("wapiwps %s\n", WapiWps_Version());
        return kExitOk;
    }
    if (opt.help) {
        std::printf("%s", usage_text(opt.command));
        return kExitOk;
    }
    switch (opt.command) {
        case Command::Demo:
            return run_demo(opt);
        case Command::Enroll:
            return run_enroll(opt);
        case Command::Registrar:
            return run_registrar(opt);
        case Command::Decode:
            return run_decode(opt);
        case Command::Replay:
            return run_replay(opt);
        case Command::None:
            break;
    }
    std::printf("%s", usage_text(Command::None));
    return kExitUsage;
}
