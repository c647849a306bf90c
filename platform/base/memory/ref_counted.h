// Thread-safe intrusive reference counting, as libchrome spells it.
#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

namespace base {

template <typename T>
class RefCountedThreadSafe {
  public:
    void AddRef() const { mRefs.fetch_add(1, std::memory_order_relaxed); }
    void Release() const {
        if (mRefs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete static_cast<const T*>(this);
        }
    }
    bool HasOneRef() const { return mRefs.load(std::memory_order_acquire) == 1; }

  protected:
    RefCountedThreadSafe() = default;
    ~RefCountedThreadSafe() = default;
    RefCountedThreadSafe(const RefCountedThreadSafe&) = delete;
    RefCountedThreadSafe& operator=(const RefCountedThreadSafe&) = delete;

  private:
    mutable std::atomic<int> mRefs{0};
};

}  // namespace base

template <typename T>
class scoped_refptr {
  public:
    scoped_refptr() = default;
    scoped_refptr(std::nullptr_t) {}
    scoped_refptr(T* p) : mPtr(p) {
        if (mPtr) mPtr->AddRef();
    }
    scoped_refptr(const scoped_refptr& o) : scoped_refptr(o.mPtr) {}
    template <typename U>
    scoped_refptr(const scoped_refptr<U>& o) : scoped_refptr(o.get()) {}
    scoped_refptr(scoped_refptr&& o) noexcept : mPtr(std::exchange(o.mPtr, nullptr)) {}
    template <typename U>
    scoped_refptr(scoped_refptr<U>&& o) noexcept : mPtr(o.release()) {}
    ~scoped_refptr() {
        if (mPtr) mPtr->Release();
    }
    scoped_refptr& operator=(scoped_refptr o) noexcept {
        std::swap(mPtr, o.mPtr);
        return *this;
    }

    T* get() const { return mPtr; }
    T* operator->() const { return mPtr; }
    T& operator*() const { return *mPtr; }
    explicit operator bool() const { return mPtr != nullptr; }
    void reset() { scoped_refptr().swap(*this); }
    void swap(scoped_refptr& o) noexcept { std::swap(mPtr, o.mPtr); }
    // Hands the reference to the caller without releasing it.
    T* release() { return std::exchange(mPtr, nullptr); }

    bool operator==(const scoped_refptr& o) const { return mPtr == o.mPtr; }
    bool operator!=(const scoped_refptr& o) const { return mPtr != o.mPtr; }
    bool operator==(std::nullptr_t) const { return mPtr == nullptr; }
    bool operator!=(std::nullptr_t) const { return mPtr != nullptr; }

  private:
    T* mPtr = nullptr;
};

namespace base {
template <typename T, typename... Args>
scoped_refptr<T> MakeRefCounted(Args&&... args) {
    return scoped_refptr<T>(new T(std::forward<Args>(args)...));
}
}  // namespace base
