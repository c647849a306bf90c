// Text for an XML or HTML attribute or text node: the JUnit report and the HTML pages use it.
#pragma once

#include <string>
#include <string_view>

namespace kelvane::tools::check {

// `text` with &, <, >, " and ' as character references. Bytes that are not UTF-8, and the control
// characters XML 1.0 has no place for, become '?': a sensor's name comes from the sub-HAL as it is.
std::string markupEscaped(std::string_view text);

}  // namespace kelvane::tools::check
