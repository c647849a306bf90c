#include <utils/RefBase.h>

namespace android {

// Increments may be relaxed: a new reference is always made from one the caller already holds.
// Decrements are acq_rel so that everything done through any reference happens before the delete
// that follows the last one.

RefBase::weakref_type::weakref_type(RefBase* base)
    : mBase(base), mStrong(INITIAL_STRONG_VALUE), mWeak(1) {}

RefBase* RefBase::weakref_type::refBase() const { return mBase; }

void RefBase::weakref_type::incWeak(const void* /*id*/) {
    mWeak.fetch_add(1, std::memory_order_relaxed);
}

void RefBase::weakref_type::decWeak(const void* /*id*/) {
    if (mWeak.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

bool RefBase::weakref_type::attemptIncStrong(const void* /*id*/) {
    int32_t current = mStrong.load(std::memory_order_relaxed);
    // Zero is final: the object has been or is being destroyed.
    while (current > 0) {
        if (mStrong.compare_exchange_weak(current, current + 1, std::memory_order_acquire,
                                          std::memory_order_relaxed)) {
            break;
        }
    }
    if (current <= 0) return false;
    if (current == INITIAL_STRONG_VALUE) {
        mStrong.fetch_sub(INITIAL_STRONG_VALUE, std::memory_order_relaxed);
        mBase->onFirstRef();
    }
    return true;
}

RefBase::RefBase() : mRefs(new weakref_type(this)) {}

RefBase::~RefBase() {
    // An object destroyed without ever being strongly held (on the stack, say) must not be
    // promoted by weak references that outlive it.
    int32_t expected = INITIAL_STRONG_VALUE;
    mRefs->mStrong.compare_exchange_strong(expected, 0, std::memory_order_relaxed);
    mRefs->decWeak(this);
}

void RefBase::incStrong(const void* /*id*/) const {
    const int32_t previous = mRefs->mStrong.fetch_add(1, std::memory_order_relaxed);
    if (previous == INITIAL_STRONG_VALUE) {
        mRefs->mStrong.fetch_sub(INITIAL_STRONG_VALUE, std::memory_order_relaxed);
        const_cast<RefBase*>(this)->onFirstRef();
    }
}

void RefBase::decStrong(const void* id) const {
    if (mRefs->mStrong.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        RefBase* self = const_cast<RefBase*>(this);
        self->onLastStrongRef(id);
        delete self;
    }
}

int32_t RefBase::getStrongCount() const { return mRefs->mStrong.load(std::memory_order_relaxed); }

RefBase::weakref_type* RefBase::createWeak(const void* id) const {
    mRefs->incWeak(id);
    return mRefs;
}

RefBase::weakref_type* RefBase::getWeakRefs() const { return mRefs; }

void RefBase::onFirstRef() {}

void RefBase::onLastStrongRef(const void* /*id*/) {}

}  // namespace android
