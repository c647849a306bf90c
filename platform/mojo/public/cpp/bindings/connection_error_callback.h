#pragma once

#include <cstdint>
#include <string>

#include "base/callback.h"

namespace mojo {
using ConnectionErrorWithReasonCallback =
    base::OnceCallback<void(uint32_t custom_reason, const std::string& description)>;
}  // namespace mojo
