// WeakPtr<T>: a pointer that becomes null once its target is gone, for callbacks and tasks that
// may outlive the object they call. The target owns a WeakPtrFactory, declared as its last member
// so that it is destroyed first and invalidates its pointers before any other member goes:
//
//   class Device {
//     ...
//     void start() { runner->PostTask(FROM_HERE, base::BindOnce(&Device::poll,
//     mWeak.GetWeakPtr())); } base::WeakPtrFactory<Device> mWeak{this};
//   };
//
// A method bound to a WeakPtr (base::BindOnce/BindRepeating with the WeakPtr as receiver) does
// nothing once the pointer is invalid; such a method returns void.
//
// Threads: WeakPtrs may be copied, moved and destroyed on any thread, but are dereferenced or
// tested only on one sequence, the one the target lives on; InvalidateWeakPtrs() and the factory's
// destructor run there too. The first test or invalidation binds that sequence; breaking the rule
// crashes with a log line rather than racing. GetWeakPtr() may be called on any thread, though not
// while InvalidateWeakPtrs() runs.
#pragma once

#include <utility>

#include "base/logging.h"
#include "base/memory/ref_counted.h"
#include "base/sequence_checker.h"

namespace base {
namespace internal {

// Shared by a factory and the pointers it made; false once they are invalidated.
class WeakReferenceFlag : public RefCountedThreadSafe<WeakReferenceFlag> {
  public:
    bool IsValid() const {
        DCHECK_CALLED_ON_VALID_SEQUENCE(mSequence);
        return mValid;
    }
    // Off the sequence only when no pointer is left that could observe it.
    void Invalidate() {
        CHECK(HasOneRef() || mSequence.CalledOnValidSequence())
            << "weak pointers invalidated off their sequence. ";
        mValid = false;
    }

  private:
    friend class RefCountedThreadSafe<WeakReferenceFlag>;
    ~WeakReferenceFlag() = default;

    bool mValid = true;
    SEQUENCE_CHECKER(mSequence);
};

}  // namespace internal

template <typename T>
class WeakPtrFactory;

template <typename T>
class WeakPtr {
  public:
    WeakPtr() = default;
    WeakPtr(std::nullptr_t) {}

    // The target, or null once it is gone.
    T* get() const { return mFlag && mFlag->IsValid() ? mPtr : nullptr; }
    T& operator*() const {
        T* target = get();
        CHECK(target);
        return *target;
    }
    T* operator->() const {
        T* target = get();
        CHECK(target);
        return target;
    }
    explicit operator bool() const { return get() != nullptr; }
    void reset() {
        mFlag = nullptr;
        mPtr = nullptr;
    }

  private:
    friend class WeakPtrFactory<T>;
    WeakPtr(scoped_refptr<internal::WeakReferenceFlag> flag, T* ptr)
        : mFlag(std::move(flag)), mPtr(ptr) {}

    scoped_refptr<internal::WeakReferenceFlag> mFlag;
    T* mPtr = nullptr;
};

template <typename T>
class WeakPtrFactory {
  public:
    explicit WeakPtrFactory(T* target) : mTarget(target) {}
    ~WeakPtrFactory() { mFlag->Invalidate(); }
    WeakPtrFactory(const WeakPtrFactory&) = delete;
    WeakPtrFactory& operator=(const WeakPtrFactory&) = delete;

    WeakPtr<T> GetWeakPtr() const { return WeakPtr<T>(mFlag, mTarget); }
    // Every pointer made so far becomes null; pointers made from now on are valid.
    void InvalidateWeakPtrs() {
        mFlag->Invalidate();
        mFlag = new internal::WeakReferenceFlag();
    }
    bool HasWeakPtrs() const { return !mFlag->HasOneRef(); }

  private:
    T* const mTarget;
    scoped_refptr<internal::WeakReferenceFlag> mFlag = new internal::WeakReferenceFlag();
};

}  // namespace base
