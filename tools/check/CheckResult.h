// What one rule concluded about one subject (a sensor, a sensor at a period, or the sub-HAL).
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace kelvane::tools::check {

enum class Verdict {
    kPass,
    kFail,       // detail carries the measured value and the bound
    kSkip,       // detail carries the rule's own reason for not applying
    kDeviation,  // a documented difference this system's design requires; never a pass
};

const char* verdictName(Verdict verdict);

struct Outcome {
    Verdict verdict = Verdict::kPass;
    std::string detail;
};

inline Outcome pass(std::string detail = {}) { return {Verdict::kPass, std::move(detail)}; }
inline Outcome fail(std::string detail) { return {Verdict::kFail, std::move(detail)}; }
inline Outcome skip(std::string detail) { return {Verdict::kSkip, std::move(detail)}; }
inline Outcome deviation(std::string detail) { return {Verdict::kDeviation, std::move(detail)}; }

struct CheckResult {
    std::string rule;     // catalogue id, e.g. "stream.count"
    std::string source;   // the conformance test or proxy rule it restates
    std::string group;    // "list", "commands", "stream" or "proxy"
    std::string subject;  // "Accelerometer (lid) @ 200 ms", or "sub-HAL"
    std::optional<int32_t> handle;
    Verdict verdict = Verdict::kPass;
    std::string detail;
};

// The one JSON form of a result, for JSON lines, the pages and serve:
// {"rule", "source", "group", "subject", "handle" (null for the sub-HAL), "verdict", "detail"}.
nlohmann::json toJson(const CheckResult& result);

}  // namespace kelvane::tools::check
