#include "report/PageOrigin.h"

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>

namespace kelvane::tools::report {

namespace {

// `word` as one shell word: unchanged when it holds nothing a shell reads, else single-quoted.
std::string shellWord(const std::string& word) {
    const bool plain = !word.empty() && word.find_first_not_of(
                                            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                            "0123456789-_./=:,+@%") == std::string::npos;
    if (plain) return word;
    std::string quoted = "'";
    for (char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// Now, or SOURCE_DATE_EPOCH where it is set, so that a page made twice from the same input can be
// the same page (the reproducible-builds convention).
std::string utcNow() {
    const char* epoch = std::getenv("SOURCE_DATE_EPOCH");
    const std::time_t now =
        epoch != nullptr && *epoch != '\0' ? std::strtoll(epoch, nullptr, 10) : std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S UTC", &utc);
    return text;
}

}  // namespace

std::string thisCommandLine() {
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    const std::string all((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::string line;
    size_t start = 0;
    while (start < all.size()) {
        size_t end = all.find('\0', start);
        if (end == std::string::npos) end = all.size();
        if (!line.empty()) line += ' ';
        line += shellWord(all.substr(start, end - start));
        start = end + 1;
    }
    return line;
}

nlohmann::json originJson(const PageOrigin& origin) {
    return {{"written", utcNow()},
            {"tool", "iio-subhal " IIO_SUBHAL_VERSION},
            {"commandLine", thisCommandLine()},
            {"host", origin.host},
            {"library", origin.library},
            {"libraryBuild", origin.libraryBuild}};
}

}  // namespace kelvane::tools::report
