#include "Diagnostics.h"

#include <cstdio>

namespace kelvane::tools {

void printError(const std::string& message) {
    std::fprintf(stderr, "iio-subhal: %s\n", message.c_str());
}

void printWarning(const std::string& message) {
    std::fprintf(stderr, "iio-subhal: warning: %s\n", message.c_str());
}

}  // namespace kelvane::tools
