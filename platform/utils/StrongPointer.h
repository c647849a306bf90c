// android::sp<T>: a strong reference to a RefBase-derived object.
#pragma once

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace android {

template <typename T>
class wp;

template <typename T>
class sp {
  public:
    sp() noexcept : m_ptr(nullptr) {}
    sp(std::nullptr_t) noexcept : m_ptr(nullptr) {}

    sp(T* other) : m_ptr(other) {
        if (m_ptr) m_ptr->incStrong(this);
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sp(U* other) : m_ptr(other) {
        if (m_ptr) m_ptr->incStrong(this);
    }

    sp(const sp& other) : m_ptr(other.m_ptr) {
        if (m_ptr) m_ptr->incStrong(this);
    }
    sp(sp&& other) noexcept : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }

    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sp(const sp<U>& other) : m_ptr(other.m_ptr) {
        if (m_ptr) m_ptr->incStrong(this);
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sp(sp<U>&& other) noexcept : m_ptr(other.m_ptr) {
        other.m_ptr = nullptr;
    }

    ~sp() {
        if (m_ptr) m_ptr->decStrong(this);
    }

    sp& operator=(const sp& other) {
        reset(other.m_ptr);
        return *this;
    }
    sp& operator=(sp&& other) noexcept {
        if (this != &other) adopt(std::exchange(other.m_ptr, nullptr));
        return *this;
    }
    sp& operator=(T* other) {
        reset(other);
        return *this;
    }
    sp& operator=(std::nullptr_t) {
        clear();
        return *this;
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sp& operator=(const sp<U>& other) {
        reset(other.m_ptr);
        return *this;
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sp& operator=(sp<U>&& other) {
        adopt(std::exchange(other.m_ptr, nullptr));
        return *this;
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sp& operator=(U* other) {
        reset(other);
        return *this;
    }

    // Allocates the object and takes the first strong reference.
    template <typename... Args>
    static sp<T> make(Args&&... args) {
        return sp<T>(new T(std::forward<Args>(args)...));
    }

    void clear() { adopt(nullptr); }

    T& operator*() const { return *m_ptr; }
    T* operator->() const { return m_ptr; }
    T* get() const { return m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }

  private:
    template <typename Y>
    friend class sp;
    template <typename Y>
    friend class wp;

    // The new reference is taken before the old one is dropped: dropping it may destroy an
    // object that owns this sp, or the object that `other` points into.
    void reset(T* other) {
        if (other) other->incStrong(this);
        adopt(other);
    }
    // Takes over a reference the caller already holds.
    void adopt(T* other) {
        T* old = m_ptr;
        m_ptr = other;
        if (old) old->decStrong(this);
    }

    T* m_ptr;
};

template <typename T, typename U>
bool operator==(const sp<T>& a, const sp<U>& b) {
    return a.get() == b.get();
}
template <typename T, typename U>
bool operator!=(const sp<T>& a, const sp<U>& b) {
    return a.get() != b.get();
}
template <typename T, typename U>
bool operator==(const sp<T>& a, const U* b) {
    return a.get() == b;
}
template <typename T, typename U>
bool operator!=(const sp<T>& a, const U* b) {
    return a.get() != b;
}
template <typename T, typename U>
bool operator==(const T* a, const sp<U>& b) {
    return a == b.get();
}
template <typename T, typename U>
bool operator!=(const T* a, const sp<U>& b) {
    return a != b.get();
}
template <typename T>
bool operator==(const sp<T>& a, std::nullptr_t) {
    return a.get() == nullptr;
}
template <typename T>
bool operator!=(const sp<T>& a, std::nullptr_t) {
    return a.get() != nullptr;
}
template <typename T>
bool operator==(std::nullptr_t, const sp<T>& b) {
    return b.get() == nullptr;
}
template <typename T>
bool operator!=(std::nullptr_t, const sp<T>& b) {
    return b.get() != nullptr;
}
// Ordering by address, so that sp can key ordered containers.
template <typename T>
bool operator<(const sp<T>& a, const sp<T>& b) {
    return std::less<T*>()(a.get(), b.get());
}

}  // namespace android
