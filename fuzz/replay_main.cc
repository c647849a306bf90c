// Runs a fuzz target over saved inputs without libFuzzer: every file named on the command line,
// and every file in every directory named (in name order). A directory that does not exist is an
// empty one, so a target without regressions yet replays nothing.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

bool replay(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return false;
    }
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::fprintf(stderr, "replaying %s (%zu bytes)\n", file.c_str(), bytes.size());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        std::error_code error;
        if (std::filesystem::is_directory(path, error)) {
            std::vector<std::filesystem::path> files;
            for (const auto& entry : std::filesystem::directory_iterator(path)) {
                if (entry.is_regular_file()) files.push_back(entry.path());
            }
            std::sort(files.begin(), files.end());
            for (const auto& file : files) {
                if (!replay(file)) return 1;
                ++replayed;
            }
        } else if (std::filesystem::exists(path, error)) {
            if (!replay(path)) return 1;
            ++replayed;
        }
    }
    std::printf("replayed %zu inputs\n", replayed);
    return 0;
}
