#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ostream>

namespace android {
namespace hardware {

namespace details {

void hidlSizeOverflow(size_t size) {
    std::fprintf(stderr, "F/HidlSupport: size %zu does not fit in 32 bits\n", size);
    std::abort();
}

}  // namespace details

namespace {
const char kEmpty[] = "";
}  // namespace

hidl_string::hidl_string() : mBuffer(kEmpty), mSize(0), mOwnsBuffer(false) {}

hidl_string::hidl_string(const char* s) : hidl_string() {
    if (s != nullptr) copyFrom(s, std::strlen(s));
}

hidl_string::hidl_string(const char* s, size_t length) : hidl_string() { copyFrom(s, length); }

hidl_string::hidl_string(const std::string& s) : hidl_string() { copyFrom(s.data(), s.size()); }

hidl_string::hidl_string(const hidl_string& other) : hidl_string() {
    copyFrom(other.mBuffer, other.mSize);
}

hidl_string::hidl_string(hidl_string&& other) noexcept : hidl_string() {
    moveFrom(std::move(other));
}

hidl_string::~hidl_string() { clear(); }

hidl_string& hidl_string::operator=(const hidl_string& other) {
    if (this != &other) copyFrom(other.mBuffer, other.mSize);
    return *this;
}

hidl_string& hidl_string::operator=(hidl_string&& other) noexcept {
    if (this != &other) {
        clear();
        moveFrom(std::move(other));
    }
    return *this;
}

hidl_string& hidl_string::operator=(const char* s) {
    if (s == nullptr) {
        clear();
    } else {
        copyFrom(s, std::strlen(s));
    }
    return *this;
}

hidl_string& hidl_string::operator=(const std::string& s) {
    copyFrom(s.data(), s.size());
    return *this;
}

void hidl_string::clear() {
    if (mOwnsBuffer) delete[] mBuffer;
    mBuffer = kEmpty;
    mSize = 0;
    mOwnsBuffer = false;
}

void hidl_string::setToExternal(const char* data, size_t size) {
    if (size > UINT32_MAX) details::hidlSizeOverflow(size);
    clear();
    mBuffer = data;
    mSize = static_cast<uint32_t>(size);
}

// Copies into a fresh buffer first: `data` may point into our own buffer.
void hidl_string::copyFrom(const char* data, size_t size) {
    if (size > UINT32_MAX) details::hidlSizeOverflow(size);
    char* buffer = new char[size + 1];
    if (size > 0) std::memcpy(buffer, data, size);
    buffer[size] = '\0';
    clear();
    mBuffer = buffer;
    mSize = static_cast<uint32_t>(size);
    mOwnsBuffer = true;
}

void hidl_string::moveFrom(hidl_string&& other) {
    mBuffer = std::exchange(other.mBuffer, kEmpty);
    mSize = std::exchange(other.mSize, 0);
    mOwnsBuffer = std::exchange(other.mOwnsBuffer, false);
}

bool operator==(const hidl_string& a, const hidl_string& b) {
    return a.size() == b.size() && std::memcmp(a.c_str(), b.c_str(), a.size()) == 0;
}
bool operator!=(const hidl_string& a, const hidl_string& b) { return !(a == b); }
bool operator==(const hidl_string& a, const char* b) {
    return b != nullptr && std::strlen(b) == a.size() && std::memcmp(a.c_str(), b, a.size()) == 0;
}
bool operator!=(const hidl_string& a, const char* b) { return !(a == b); }
bool operator==(const char* a, const hidl_string& b) { return b == a; }
bool operator!=(const char* a, const hidl_string& b) { return !(b == a); }
bool operator<(const hidl_string& a, const hidl_string& b) {
    return std::string(a) < std::string(b);
}
std::ostream& operator<<(std::ostream& os, const hidl_string& s) {
    return os.write(s.c_str(), static_cast<std::streamsize>(s.size()));
}

hidl_handle::hidl_handle() : mHandle(nullptr), mOwnsHandle(false) {}

hidl_handle::hidl_handle(std::nullptr_t) : hidl_handle() {}

hidl_handle::hidl_handle(const native_handle_t* handle) : mHandle(handle), mOwnsHandle(false) {}

hidl_handle::hidl_handle(const hidl_handle& other) : hidl_handle() { *this = other; }

hidl_handle::hidl_handle(hidl_handle&& other) noexcept
    : mHandle(std::exchange(other.mHandle, nullptr)),
      mOwnsHandle(std::exchange(other.mOwnsHandle, false)) {}

hidl_handle::~hidl_handle() { freeHandle(); }

hidl_handle& hidl_handle::operator=(const hidl_handle& other) {
    if (this == &other) return *this;
    // A failed clone (out of descriptors) leaves a null handle, which readers already handle.
    native_handle_t* clone = other.mHandle ? native_handle_clone(other.mHandle) : nullptr;
    freeHandle();
    mHandle = clone;
    mOwnsHandle = clone != nullptr;
    return *this;
}

hidl_handle& hidl_handle::operator=(hidl_handle&& other) noexcept {
    if (this != &other) {
        freeHandle();
        mHandle = std::exchange(other.mHandle, nullptr);
        mOwnsHandle = std::exchange(other.mOwnsHandle, false);
    }
    return *this;
}

hidl_handle& hidl_handle::operator=(const native_handle_t* handle) {
    if (handle == mHandle) return *this;
    freeHandle();
    mHandle = handle;
    mOwnsHandle = false;
    return *this;
}

void hidl_handle::setTo(native_handle_t* handle, bool shouldOwn) {
    if (handle != mHandle) freeHandle();
    mHandle = handle;
    mOwnsHandle = shouldOwn;
}

void hidl_handle::freeHandle() {
    if (mOwnsHandle && mHandle != nullptr) {
        native_handle_t* handle = const_cast<native_handle_t*>(mHandle);
        native_handle_close(handle);
        native_handle_delete(handle);
    }
    mHandle = nullptr;
    mOwnsHandle = false;
}

hidl_death_recipient::~hidl_death_recipient() = default;

}  // namespace hardware

namespace hidl {
namespace base {
namespace V1_0 {

using ::android::hardware::hidl_array;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Void;

bool IBase::isRemote() const { return false; }

Return<void> IBase::interfaceChain(interfaceChain_cb _hidl_cb) {
    _hidl_cb(hidl_vec<hidl_string>{IBase::descriptor});
    return Void();
}

Return<void> IBase::debug(const hidl_handle& /*fd*/, const hidl_vec<hidl_string>& /*options*/) {
    return Void();
}

Return<void> IBase::interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) {
    _hidl_cb(IBase::descriptor);
    return Void();
}

Return<void> IBase::getHashChain(getHashChain_cb _hidl_cb) {
    size_t chainLength = 0;
    interfaceChain([&](const hidl_vec<hidl_string>& chain) { chainLength = chain.size(); });
    hidl_vec<hidl_array<uint8_t, 32>> hashes(chainLength);
    for (auto& hash : hashes) {
        for (size_t i = 0; i < hash.size(); ++i) hash[i] = 0;
    }
    _hidl_cb(hashes);
    return Void();
}

Return<void> IBase::setHALInstrumentation() { return Void(); }

Return<bool> IBase::linkToDeath(const sp<hidl_death_recipient>& /*recipient*/,
                                uint64_t /*cookie*/) {
    return true;
}

Return<void> IBase::ping() { return Void(); }

Return<void> IBase::getDebugInfo(getDebugInfo_cb _hidl_cb) {
    DebugInfo info{};
    info.pid = static_cast<int32_t>(getpid());
    info.ptr = 0;
    info.arch =
        sizeof(void*) == 8 ? DebugInfo::Architecture::IS_64BIT : DebugInfo::Architecture::IS_32BIT;
    _hidl_cb(info);
    return Void();
}

Return<void> IBase::notifySyspropsChanged() { return Void(); }

Return<bool> IBase::unlinkToDeath(const sp<hidl_death_recipient>& /*recipient*/) { return true; }

}  // namespace V1_0
}  // namespace base
}  // namespace hidl
}  // namespace android
