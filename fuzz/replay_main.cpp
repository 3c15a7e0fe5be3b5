// Replays fuzz inputs without libFuzzer: every file named on the command line, or every file in
// a named folder, goes once through LLVMFuzzerTestOneInput. A crash fails the test.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static int replay_file(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 1;
}

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path))
                if (entry.is_regular_file()) count += replay_file(entry.path());
        } else if (std::filesystem::exists(path)) {
            count += replay_file(path);
        }
    }
    std::printf("replayed %d inputs\n", count);
    return 0;
}
