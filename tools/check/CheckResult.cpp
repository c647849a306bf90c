#include "check/CheckResult.h"

namespace kelvane::tools::check {

const char* verdictName(Verdict verdict) {
    switch (verdict) {
        case Verdict::kPass:
            return "PASS";
        case Verdict::kFail:
            return "FAIL";
        case Verdict::kSkip:
            return "SKIP";
        case Verdict::kDeviation:
            return "DEVIATION";
    }
    return "?";
}

nlohmann::json toJson(const CheckResult& r) {
    return {{"rule", r.rule},
            {"source", r.source},
            {"group", r.group},
            {"subject", r.subject},
            {"handle", r.handle ? nlohmann::json(*r.handle) : nlohmann::json(nullptr)},
            {"verdict", verdictName(r.verdict)},
            {"detail", r.detail}};
}

}  // namespace kelvane::tools::check
