#pragma once

#include <string>

namespace base {

// Where a task was posted from. Holds string literals only (__FILE__, __func__), so copies are
// cheap and the pointers stay valid for the life of the process.
class Location {
  public:
    Location() = default;

    static Location CreateFromHere(const char* file_name);
    static Location CreateFromHere(const char* function_name, const char* file_name,
                                   int line_number);

    // Null for a default-constructed Location.
    const char* function_name() const { return mFunctionName; }
    const char* file_name() const { return mFileName; }
    int line_number() const { return mLineNumber; }
    bool has_source_info() const { return mFileName != nullptr; }

    // "function@file:line", or "unknown" without source info.
    std::string ToString() const;

  private:
    Location(const char* function_name, const char* file_name, int line_number)
        : mFunctionName(function_name), mFileName(file_name), mLineNumber(line_number) {}

    const char* mFunctionName = nullptr;
    const char* mFileName = nullptr;
    int mLineNumber = -1;
};

}  // namespace base

#define FROM_HERE ::base::Location::CreateFromHere(__func__, __FILE__, __LINE__)
