// The host-description reader (hand-written descriptions and recordings alike) on any bytes: it
// never crashes, refuses with one line, and what it accepts comes back as the same text when
// written and read again. Run with -rss_limit_mb: the reader must bound its memory by the input.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/description/DescriptionReader.h"
#include "host/description/DescriptionWriter.h"

using kelvane::host::description::HostConfig;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    HostConfig config;
    std::string error;
    if (!kelvane::host::description::parseHostDescription(text, &config, &error)) {
        if (error.empty() || error.find('\n') != std::string::npos) {
            std::fprintf(stderr, "refusal is not one line: \"%s\"\n", error.c_str());
            std::abort();
        }
        return 0;
    }
    const std::string written = kelvane::host::description::hostDescriptionText(config);
    HostConfig again;
    if (!kelvane::host::description::parseHostDescription(written, &again, &error)) {
        std::fprintf(stderr, "written description refused: %s\n", error.c_str());
        std::abort();
    }
    if (kelvane::host::description::hostDescriptionText(again) != written) {
        std::fprintf(stderr, "description changed on a second round trip\n");
        std::abort();
    }
    return 0;
}
