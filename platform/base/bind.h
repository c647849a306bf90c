// BindOnce / BindRepeating: bind leading arguments to a function, member function (receiver first:
// base::Unretained(this), or a WeakPtr so that the call is dropped once the target is gone), lambda
// or callback. Bound arguments are stored by value.
#pragma once

#include <cstdlib>
#include <functional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "base/callback.h"

namespace base {

template <typename T>
class WeakPtr;

namespace internal {

// Holds a receiver without owning it or checking that it is alive.
template <typename T>
class UnretainedWrapper {
  public:
    explicit UnretainedWrapper(T* o) : mPtr(o) {}
    T* get() const { return mPtr; }

  private:
    T* mPtr;
};

template <typename... Ts>
struct TypeList {};

template <size_t N, typename List, typename = void>
struct DropTypes {
    using Type = List;
};
template <size_t N, typename T, typename... Ts>
struct DropTypes<N, TypeList<T, Ts...>, std::enable_if_t<(N > 0)>> {
    using Type = typename DropTypes<N - 1, TypeList<Ts...>>::Type;
};

// The full run type of a functor: R(Args...) with the receiver first for member functions.
template <typename F, typename = void>
struct FunctorTraits;
template <typename R, typename... A>
struct FunctorTraits<R (*)(A...)> {
    using Return = R;
    using Params = TypeList<A...>;
};
template <typename R, typename C, typename... A>
struct FunctorTraits<R (C::*)(A...)> {
    using Return = R;
    using Params = TypeList<C*, A...>;
};
template <typename R, typename C, typename... A>
struct FunctorTraits<R (C::*)(A...) const> {
    using Return = R;
    using Params = TypeList<const C*, A...>;
};
template <typename R, typename... A>
struct FunctorTraits<OnceCallback<R(A...)>> {
    using Return = R;
    using Params = TypeList<A...>;
};
template <typename R, typename... A>
struct FunctorTraits<RepeatingCallback<R(A...)>> {
    using Return = R;
    using Params = TypeList<A...>;
};
template <typename R, typename C, typename... A>
struct CallOperatorTraits {
    using Return = R;
    using Params = TypeList<A...>;
};
template <typename R, typename C, typename... A>
CallOperatorTraits<R, C, A...> CallOperatorOf(R (C::*)(A...) const);
template <typename R, typename C, typename... A>
CallOperatorTraits<R, C, A...> CallOperatorOf(R (C::*)(A...));
template <typename F>
struct FunctorTraits<F, std::void_t<decltype(&F::operator())>>
    : decltype(CallOperatorOf(&F::operator())) {};

template <typename T>
struct IsUnretained : std::false_type {};
template <typename T>
struct IsUnretained<UnretainedWrapper<T>> : std::true_type {};
template <typename T>
struct IsCallback : std::false_type {};
template <typename Sig>
struct IsCallback<OnceCallback<Sig>> : std::true_type {};
template <typename Sig>
struct IsCallback<RepeatingCallback<Sig>> : std::true_type {};

template <typename T>
decltype(auto) Unwrap(T&& t) {
    if constexpr (IsUnretained<std::decay_t<T>>::value) {
        return t.get();
    } else {
        return std::forward<T>(t);
    }
}

template <typename F, typename... A>
decltype(auto) InvokeFunctor(F&& f, A&&... args) {
    if constexpr (IsCallback<std::decay_t<F>>::value) {
        return std::forward<F>(f).Run(std::forward<A>(args)...);
    } else {
        return std::invoke(std::forward<F>(f), std::forward<A>(args)...);
    }
}

template <typename T>
struct IsWeakPtr : std::false_type {};
template <typename T>
struct IsWeakPtr<WeakPtr<T>> : std::true_type {};

// A method whose receiver is bound as a WeakPtr: the call is dropped once the target is gone.
template <typename Functor, typename BoundTuple, typename = void>
struct IsWeakMethodCall : std::false_type {};
template <typename Functor, typename First, typename... Rest>
struct IsWeakMethodCall<Functor, std::tuple<First, Rest...>,
                        std::enable_if_t<std::is_member_function_pointer_v<Functor>>>
    : IsWeakPtr<First> {};

// The receiver of a weak method call is passed as the raw target; every other bound argument
// as Unwrap() makes it.
template <bool kWeakReceiver, size_t I, typename T>
decltype(auto) UnwrapBound(T&& t) {
    if constexpr (kWeakReceiver && I == 0) {
        return t.get();
    } else {
        return Unwrap(std::forward<T>(t));
    }
}

// kOnce: made by BindOnce, so it runs once with its bound arguments moved out; a repeating state
// passes them as lvalues every time.
template <bool kOnce, typename Functor, typename BoundTuple, typename R, typename... Unbound>
class BindState final : public BindStateBase<R, Unbound...> {
  public:
    static constexpr bool kWeakReceiver = IsWeakMethodCall<Functor, BoundTuple>::value;
    static_assert(!kWeakReceiver || std::is_void_v<R>,
                  "a method bound to a WeakPtr may be dropped, so it must return void");

    BindState(Functor f, BoundTuple bound) : mFunctor(std::move(f)), mBound(std::move(bound)) {}

    R RunOnce(Unbound&&... args) override {
        if constexpr (kOnce) {
            return Call(std::move(mFunctor), std::move(mBound), kIndices,
                        std::forward<Unbound>(args)...);
        } else {
            return RunRepeating(std::forward<Unbound>(args)...);
        }
    }
    R RunRepeating(Unbound&&... args) override {
        if constexpr (kOnce) {
            std::abort();  // a once callback never shares its state
        } else {
            return Call(mFunctor, mBound, kIndices, std::forward<Unbound>(args)...);
        }
    }

  private:
    static constexpr auto kIndices = std::make_index_sequence<std::tuple_size_v<BoundTuple>>();

    template <typename F, typename Tuple, size_t... I>
    static R Call(F&& f, Tuple&& bound, std::index_sequence<I...>, Unbound&&... args) {
        if constexpr (kWeakReceiver) {
            if (!std::get<0>(bound)) return;
        }
        return InvokeFunctor(
            std::forward<F>(f),
            UnwrapBound<kWeakReceiver, I>(std::get<I>(std::forward<Tuple>(bound)))...,
            std::forward<Unbound>(args)...);
    }

    Functor mFunctor;
    BoundTuple mBound;
};

template <template <typename> class Callback, typename R, typename Functor, typename BoundTuple,
          typename List>
struct MakeCallback;
template <template <typename> class Callback, typename R, typename Functor, typename BoundTuple,
          typename... Unbound>
struct MakeCallback<Callback, R, Functor, BoundTuple, TypeList<Unbound...>> {
    using Type = Callback<R(Unbound...)>;
    static Type Make(Functor f, BoundTuple bound) {
        constexpr bool kOnce = std::is_same_v<Type, OnceCallback<R(Unbound...)>>;
        return Type(new BindState<kOnce, Functor, BoundTuple, R, Unbound...>(std::move(f),
                                                                             std::move(bound)));
    }
};

template <template <typename> class Callback, typename F, typename... Bound>
auto Bind(F&& f, Bound&&... bound) {
    using Functor = std::decay_t<F>;
    using Traits = FunctorTraits<Functor>;
    using Unbound = typename DropTypes<sizeof...(Bound), typename Traits::Params>::Type;
    using BoundTuple = std::tuple<std::decay_t<Bound>...>;
    using Maker = MakeCallback<Callback, typename Traits::Return, Functor, BoundTuple, Unbound>;
    return Maker::Make(std::forward<F>(f), BoundTuple(std::forward<Bound>(bound)...));
}

}  // namespace internal

template <typename T>
internal::UnretainedWrapper<T> Unretained(T* o) {
    return internal::UnretainedWrapper<T>(o);
}

template <typename F, typename... Bound>
auto BindOnce(F&& f, Bound&&... bound) {
    return internal::Bind<OnceCallback>(std::forward<F>(f), std::forward<Bound>(bound)...);
}

template <typename F, typename... Bound>
auto BindRepeating(F&& f, Bound&&... bound) {
    return internal::Bind<RepeatingCallback>(std::forward<F>(f), std::forward<Bound>(bound)...);
}

}  // namespace base
