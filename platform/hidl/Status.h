// Return values of HIDL calls. Calls here are in-process, so the transport never fails: isOk() is
// always true and the value is always there.
#pragma once

#include <string>
#include <utility>

namespace android {
namespace hardware {

template <typename T>
class Return {
  public:
    Return(T value) : mVal(std::move(value)) {}

    bool isOk() const { return true; }
    bool isDeadObject() const { return false; }
    std::string description() const { return "No error"; }

    T withDefault(T /*defaultValue*/) const { return mVal; }
    operator T() const { return mVal; }

  private:
    T mVal;
};

template <>
class Return<void> {
  public:
    Return() = default;

    bool isOk() const { return true; }
    bool isDeadObject() const { return false; }
    std::string description() const { return "No error"; }
};

inline Return<void> Void() { return Return<void>(); }

}  // namespace hardware
}  // namespace android
