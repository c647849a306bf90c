#include "base/location.h"

namespace base {

Location Location::CreateFromHere(const char* file_name) {
    return Location(nullptr, file_name, -1);
}

Location Location::CreateFromHere(const char* function_name, const char* file_name,
                                  int line_number) {
    return Location(function_name, file_name, line_number);
}

std::string Location::ToString() const {
    if (!has_source_info()) return "unknown";
    std::string out;
    if (mFunctionName != nullptr) {
        out += mFunctionName;
        out += '@';
    }
    out += mFileName;
    if (mLineNumber >= 0) {
        out += ':';
        out += std::to_string(mLineNumber);
    }
    return out;
}

}  // namespace base
