// android::RefBase and android::wp<T>.
//
// A RefBase object is deleted when its last strong reference goes. Its counts live in a separate
// control block (weakref_type) that outlives the object for as long as weak references remain, so
// a wp can tell whether the object is still there. The block holds one weak count of its own on
// behalf of the object, dropped by ~RefBase; whoever drops the last weak count frees the block.
#pragma once

#include <cutils/compiler.h>
#include <utils/StrongPointer.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

namespace android {

class ANDROID_API RefBase {
  public:
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    // INITIAL_STRONG_VALUE until the first strong reference is taken.
    int32_t getStrongCount() const;

    class ANDROID_API weakref_type {
      public:
        RefBase* refBase() const;
        void incWeak(const void* id);
        void decWeak(const void* id);
        // Takes a strong reference unless the object is gone or its last strong reference has
        // been dropped. The caller must hold a weak reference.
        bool attemptIncStrong(const void* id);

      private:
        friend class RefBase;
        explicit weakref_type(RefBase* base);

        RefBase* const mBase;
        std::atomic<int32_t> mStrong;
        std::atomic<int32_t> mWeak;
    };

    // Returns the control block with one more weak reference taken.
    weakref_type* createWeak(const void* id) const;
    weakref_type* getWeakRefs() const;

    static constexpr int32_t INITIAL_STRONG_VALUE = 1 << 28;

  protected:
    RefBase();
    virtual ~RefBase();

    virtual void onFirstRef();
    virtual void onLastStrongRef(const void* id);

  private:
    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

    weakref_type* const mRefs;
};

namespace detail {

// True when a U* converts to T* by a fixed offset, i.e. T is U or a base of U reached without
// passing through a virtual base. Converting through a virtual base reads the object, which a weak
// reference may no longer have.
template <typename U, typename T, typename = void>
struct is_static_upcast : std::false_type {};
template <typename U, typename T>
struct is_static_upcast<
    U, T, std::void_t<decltype(static_cast<const volatile U*>(std::declval<const volatile T*>()))>>
    : std::is_convertible<U*, T*> {};

}  // namespace detail

template <typename T>
class wp {
  public:
    using weakref_type = RefBase::weakref_type;

    wp() noexcept : m_ptr(nullptr), m_refs(nullptr) {}
    wp(std::nullptr_t) noexcept : wp() {}
    // `other` must be alive.
    wp(T* other) : m_ptr(other), m_refs(other ? other->createWeak(this) : nullptr) {}
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    wp(U* other) : wp(static_cast<T*>(other)) {}
    wp(const sp<T>& other) : wp(other.get()) {}
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    wp(const sp<U>& other) : wp(static_cast<T*>(other.get())) {}

    wp(const wp& other) : m_ptr(other.m_ptr), m_refs(other.m_refs) {
        if (m_refs) m_refs->incWeak(this);
    }
    wp(wp&& other) noexcept
        : m_ptr(std::exchange(other.m_ptr, nullptr)),
          m_refs(std::exchange(other.m_refs, nullptr)) {}
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    wp(const wp<U>& other) : wp() {
        copyFrom(other);
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    wp(wp<U>&& other) : wp() {
        copyFrom(other);
        other.clear();
    }

    ~wp() {
        if (m_refs) m_refs->decWeak(this);
    }

    wp& operator=(const wp& other) {
        wp(other).swap(*this);
        return *this;
    }
    wp& operator=(wp&& other) noexcept {
        wp(std::move(other)).swap(*this);
        return *this;
    }
    wp& operator=(T* other) {
        wp(other).swap(*this);
        return *this;
    }
    wp& operator=(const sp<T>& other) {
        wp(other).swap(*this);
        return *this;
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    wp& operator=(const wp<U>& other) {
        wp(other).swap(*this);
        return *this;
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    wp& operator=(wp<U>&& other) {
        wp(std::move(other)).swap(*this);
        return *this;
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    wp& operator=(const sp<U>& other) {
        wp(other).swap(*this);
        return *this;
    }

    // A strong reference, or null once the object is gone or going.
    sp<T> promote() const {
        sp<T> result;
        if (m_ptr && m_refs->attemptIncStrong(&result)) result.m_ptr = m_ptr;
        return result;
    }

    void clear() { wp().swap(*this); }
    void swap(wp& other) noexcept {
        std::swap(m_ptr, other.m_ptr);
        std::swap(m_refs, other.m_refs);
    }

    // The pointer as it was set; it may dangle.
    T* unsafe_get() const { return m_ptr; }
    weakref_type* get_refs() const { return m_refs; }

    // Two weak references are equal when they refer to the same object (the same control block);
    // the pointers themselves may dangle and are not looked at.
    template <typename U>
    bool operator==(const wp<U>& other) const {
        return m_refs == other.m_refs;
    }
    template <typename U>
    bool operator!=(const wp<U>& other) const {
        return m_refs != other.m_refs;
    }
    bool operator<(const wp& other) const {
        return std::less<weakref_type*>()(m_refs, other.m_refs);
    }

  private:
    template <typename Y>
    friend class wp;

    template <typename U>
    void copyFrom(const wp<U>& other) {
        if constexpr (detail::is_static_upcast<U, T>::value) {
            m_ptr = other.m_ptr;
            m_refs = other.m_refs;
            if (m_refs) m_refs->incWeak(this);
        } else {
            // The conversion needs the object itself: only a live one converts, a dead one gives
            // an empty wp.
            sp<U> strong = other.promote();
            if (strong) {
                m_ptr = strong.get();
                m_refs = other.m_refs;
                m_refs->incWeak(this);
            }
        }
    }

    T* m_ptr;
    weakref_type* m_refs;
};

}  // namespace android
