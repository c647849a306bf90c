#pragma once

#include <optional>

namespace base {

template <class T>
using Optional = std::optional<T>;

using std::in_place;
using std::in_place_t;
using std::make_optional;
using std::nullopt;
using std::nullopt_t;

}  // namespace base
