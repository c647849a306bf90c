// HIDL runtime types: hidl_string, hidl_vec, hidl_array, hidl_handle, hidl_death_recipient,
// hidl_bitfield, plus Return/Void and the message queue descriptor.
#pragma once

#include <cutils/compiler.h>
#include <cutils/native_handle.h>
#include <hidl/MQDescriptor.h>
#include <hidl/Status.h>
#include <utils/RefBase.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace android {

namespace hidl {
namespace base {
namespace V1_0 {
struct IBase;
}  // namespace V1_0
}  // namespace base
}  // namespace hidl

namespace hardware {

// An owned, NUL-terminated string, laid out as on the wire: pointer, 32-bit size, owns flag.
class ANDROID_API hidl_string {
  public:
    hidl_string();
    hidl_string(const char* s);  // null is taken as ""
    hidl_string(const char* s, size_t length);
    hidl_string(const std::string& s);
    hidl_string(const hidl_string& other);
    hidl_string(hidl_string&& other) noexcept;
    ~hidl_string();

    hidl_string& operator=(const hidl_string& other);
    hidl_string& operator=(hidl_string&& other) noexcept;
    hidl_string& operator=(const char* s);
    hidl_string& operator=(const std::string& s);

    const char* c_str() const { return mBuffer; }
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    operator std::string() const { return std::string(mBuffer, mSize); }

    void clear();
    // Refers to `data` (which must be NUL-terminated at `size`) without copying or owning it.
    void setToExternal(const char* data, size_t size);

  private:
    void copyFrom(const char* data, size_t size);
    void moveFrom(hidl_string&& other);

    const char* mBuffer;
    uint32_t mSize;
    bool mOwnsBuffer;
};

ANDROID_API bool operator==(const hidl_string& a, const hidl_string& b);
ANDROID_API bool operator!=(const hidl_string& a, const hidl_string& b);
ANDROID_API bool operator==(const hidl_string& a, const char* b);
ANDROID_API bool operator!=(const hidl_string& a, const char* b);
ANDROID_API bool operator==(const char* a, const hidl_string& b);
ANDROID_API bool operator!=(const char* a, const hidl_string& b);
ANDROID_API bool operator<(const hidl_string& a, const hidl_string& b);
ANDROID_API std::ostream& operator<<(std::ostream& os, const hidl_string& s);

namespace details {
// Sizes travel as 32 bits; anything larger cannot be represented and is a programming error.
[[noreturn]] ANDROID_API void hidlSizeOverflow(size_t size);
}  // namespace details

// An owned contiguous array (or a view of someone else's, see setToExternal), laid out as on the
// wire: pointer, 32-bit size, owns flag.
template <typename T>
class hidl_vec {
  public:
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;

    hidl_vec() : mBuffer(nullptr), mSize(0), mOwnsBuffer(true) {}
    explicit hidl_vec(size_t size) : hidl_vec() { resize(size); }
    hidl_vec(std::initializer_list<T> list) : hidl_vec() { assign(list.begin(), list.size()); }
    hidl_vec(const std::vector<T>& other) : hidl_vec() { assign(other.data(), other.size()); }
    hidl_vec(const hidl_vec& other) : hidl_vec() { assign(other.mBuffer, other.mSize); }
    hidl_vec(hidl_vec&& other) noexcept : hidl_vec() { moveFrom(std::move(other)); }
    ~hidl_vec() { release(); }

    hidl_vec& operator=(const hidl_vec& other) {
        if (this != &other) assign(other.mBuffer, other.mSize);
        return *this;
    }
    hidl_vec& operator=(hidl_vec&& other) noexcept {
        if (this != &other) {
            release();
            moveFrom(std::move(other));
        }
        return *this;
    }
    hidl_vec& operator=(const std::vector<T>& other) {
        assign(other.data(), other.size());
        return *this;
    }

    // Views `data` without copying. With shouldOwn the vector takes it over and frees it with
    // delete[], so it must come from new T[].
    void setToExternal(T* data, size_t size, bool shouldOwn = false) {
        if (size > UINT32_MAX) details::hidlSizeOverflow(size);
        if (data == mBuffer) {
            mSize = static_cast<uint32_t>(size);
            mOwnsBuffer = shouldOwn;
            return;
        }
        release();
        mBuffer = data;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = shouldOwn;
    }

    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    size_t size() const { return mSize; }

    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }

    // Keeps the first min(old, new) elements; the vector owns its buffer afterwards.
    void resize(size_t size) {
        if (size > UINT32_MAX) details::hidlSizeOverflow(size);
        T* buffer = size > 0 ? new T[size]() : nullptr;
        const size_t kept = size < mSize ? size : mSize;
        for (size_t i = 0; i < kept; ++i) buffer[i] = std::move(mBuffer[i]);
        release();
        mBuffer = buffer;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = true;
    }

    iterator begin() { return mBuffer; }
    iterator end() { return mBuffer + mSize; }
    const_iterator begin() const { return mBuffer; }
    const_iterator end() const { return mBuffer + mSize; }

    operator std::vector<T>() const { return std::vector<T>(begin(), end()); }

  private:
    void assign(const T* data, size_t size) {
        if (size > UINT32_MAX) details::hidlSizeOverflow(size);
        T* buffer = size > 0 ? new T[size] : nullptr;
        for (size_t i = 0; i < size; ++i) buffer[i] = data[i];
        release();
        mBuffer = buffer;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = true;
    }
    void moveFrom(hidl_vec&& other) {
        mBuffer = std::exchange(other.mBuffer, nullptr);
        mSize = std::exchange(other.mSize, 0);
        mOwnsBuffer = std::exchange(other.mOwnsBuffer, true);
    }
    void release() {
        if (mOwnsBuffer) delete[] mBuffer;
        mBuffer = nullptr;
        mSize = 0;
        mOwnsBuffer = true;
    }

    T* mBuffer;
    uint32_t mSize;
    bool mOwnsBuffer;
};

template <typename T>
bool operator==(const hidl_vec<T>& a, const hidl_vec<T>& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (!(a[i] == b[i])) return false;
    }
    return true;
}
template <typename T>
bool operator!=(const hidl_vec<T>& a, const hidl_vec<T>& b) {
    return !(a == b);
}

// A fixed-size array, one dimension only.
template <typename T, size_t SIZE>
class hidl_array {
  public:
    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }
    static constexpr size_t size() { return SIZE; }

    bool operator==(const hidl_array& other) const {
        for (size_t i = 0; i < SIZE; ++i) {
            if (!(mBuffer[i] == other.mBuffer[i])) return false;
        }
        return true;
    }
    bool operator!=(const hidl_array& other) const { return !(*this == other); }

  private:
    T mBuffer[SIZE];
};

// Wraps a native handle. It does not own the handle unless told to (setTo with shouldOwn); a copy
// always owns a clone with duplicated descriptors, so it never dangles.
class ANDROID_API hidl_handle {
  public:
    hidl_handle();
    hidl_handle(std::nullptr_t);
    hidl_handle(const native_handle_t* handle);  // not owned
    hidl_handle(const hidl_handle& other);
    hidl_handle(hidl_handle&& other) noexcept;
    ~hidl_handle();

    hidl_handle& operator=(const hidl_handle& other);
    hidl_handle& operator=(hidl_handle&& other) noexcept;
    hidl_handle& operator=(const native_handle_t* handle);  // not owned

    // With shouldOwn, the descriptors are closed and the handle deleted when this lets go of it.
    void setTo(native_handle_t* handle, bool shouldOwn = false);

    const native_handle_t* getNativeHandle() const { return mHandle; }
    const native_handle_t* operator->() const { return mHandle; }
    operator const native_handle_t*() const { return mHandle; }

  private:
    void freeHandle();

    const native_handle_t* mHandle;
    bool mOwnsHandle;
};

// Told when a linked service dies. In-process services never do.
struct ANDROID_API hidl_death_recipient : virtual public RefBase {
    virtual void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) = 0;

  protected:
    ~hidl_death_recipient() override;
};

// A set of flags of enum E, carried as E's underlying integer.
template <typename E>
using hidl_bitfield = typename std::underlying_type<E>::type;

static_assert(sizeof(hidl_string) == 16, "hidl_string is 16 bytes on 64-bit");
static_assert(sizeof(hidl_vec<int32_t>) == 16, "hidl_vec is 16 bytes on 64-bit");
static_assert(sizeof(hidl_handle) == 16, "hidl_handle is 16 bytes on 64-bit");

}  // namespace hardware
}  // namespace android
