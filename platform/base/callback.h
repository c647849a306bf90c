// OnceCallback runs at most once and is move-only; RepeatingCallback may run many times and is
// copyable. Both share one intrusively counted bind state, so a RepeatingCallback converts to a
// OnceCallback without copying its bound arguments.
#pragma once

#include <atomic>
#include <cstdlib>
#include <utility>

#include "base/callback_forward.h"

namespace base {
namespace internal {

template <typename R, typename... Args>
class BindStateBase {
  public:
    virtual ~BindStateBase() = default;
    // Runs with the bound arguments moved out; the state is not run again.
    virtual R RunOnce(Args&&... args) = 0;
    // Runs with the bound arguments passed as lvalues; may run again.
    virtual R RunRepeating(Args&&... args) = 0;

    void AddRef() { mRefs.fetch_add(1, std::memory_order_relaxed); }
    void Release() {
        if (mRefs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }
    bool HasOneRef() const { return mRefs.load(std::memory_order_acquire) == 1; }

  private:
    std::atomic<int> mRefs{1};
};

// Owning handle to a bind state.
template <typename R, typename... Args>
class BindStateRef {
  public:
    using State = BindStateBase<R, Args...>;
    BindStateRef() = default;
    explicit BindStateRef(State* adopted) : mState(adopted) {}
    BindStateRef(const BindStateRef& o) : mState(o.mState) {
        if (mState) mState->AddRef();
    }
    BindStateRef(BindStateRef&& o) noexcept : mState(std::exchange(o.mState, nullptr)) {}
    BindStateRef& operator=(BindStateRef o) noexcept {
        std::swap(mState, o.mState);
        return *this;
    }
    ~BindStateRef() { reset(); }
    void reset() {
        if (State* s = std::exchange(mState, nullptr)) s->Release();
    }
    State* get() const { return mState; }

  private:
    State* mState = nullptr;
};

}  // namespace internal

template <typename R, typename... Args>
class OnceCallback<R(Args...)> {
  public:
    using RunType = R(Args...);
    using State = internal::BindStateBase<R, Args...>;

    OnceCallback() = default;
    OnceCallback(std::nullptr_t) {}
    explicit OnceCallback(State* adopted) : mState(adopted) {}
    OnceCallback(OnceCallback&&) noexcept = default;
    OnceCallback& operator=(OnceCallback&&) noexcept = default;
    OnceCallback(const OnceCallback&) = delete;
    OnceCallback& operator=(const OnceCallback&) = delete;
    // A repeating callback may stand where a once callback is expected.
    OnceCallback(RepeatingCallback<R(Args...)> other) : mState(std::move(other.mState)) {
        mShared = true;
    }

    bool is_null() const { return mState.get() == nullptr; }
    explicit operator bool() const { return !is_null(); }
    void Reset() { mState.reset(); }

    R Run(Args... args) && {
        internal::BindStateRef<R, Args...> state = std::move(mState);
        if (!state.get()) std::abort();
        // A state still shared with a RepeatingCallback must keep its bound arguments.
        if (mShared && !state.get()->HasOneRef()) {
            return state.get()->RunRepeating(std::forward<Args>(args)...);
        }
        return state.get()->RunOnce(std::forward<Args>(args)...);
    }

  private:
    internal::BindStateRef<R, Args...> mState;
    bool mShared = false;
};

template <typename R, typename... Args>
class RepeatingCallback<R(Args...)> {
  public:
    using RunType = R(Args...);
    using State = internal::BindStateBase<R, Args...>;

    RepeatingCallback() = default;
    RepeatingCallback(std::nullptr_t) {}
    explicit RepeatingCallback(State* adopted) : mState(adopted) {}

    bool is_null() const { return mState.get() == nullptr; }
    explicit operator bool() const { return !is_null(); }
    void Reset() { mState.reset(); }

    R Run(Args... args) const& {
        if (!mState.get()) std::abort();
        return mState.get()->RunRepeating(std::forward<Args>(args)...);
    }
    R Run(Args... args) && {
        RepeatingCallback self = std::move(*this);
        return self.Run(std::forward<Args>(args)...);
    }

  private:
    friend class OnceCallback<R(Args...)>;
    internal::BindStateRef<R, Args...> mState;
};

}  // namespace base
