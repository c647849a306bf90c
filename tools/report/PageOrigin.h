// What a page meant to be kept says of its own making, at its top: when it was written, by
// which tool and command line, with which library, about which host.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kelvane::tools::report {

struct PageOrigin {
    std::string host;     // what served the sensors, for a person: "the built-in emulated host"
    std::string library;  // the sub-HAL's path; empty when none was loaded
    std::string libraryBuild;  // its build ID; empty when unknown
};

// `origin` with the time now (UTC), this tool's version and this process's command line:
// {"written", "tool", "commandLine", "host", "library", "libraryBuild"}.
nlohmann::json originJson(const PageOrigin& origin);

// This process's command line as a shell would take it back: words that need it quoted.
std::string thisCommandLine();

}  // namespace kelvane::tools::report
