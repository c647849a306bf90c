// One self-contained HTML file: its style sheets, its data and its scripts inlined, so that it
// opens from disk with no network. The data is JSON in a <script type="application/json"> the
// page's script parses; nothing from the data is ever read as markup.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane::tools::report {

// JSON that can stand inside a <script> element: no "<" (so no "</script>"), ">" or "&"; text
// that is not UTF-8 has U+FFFD in place of its bad bytes.
std::string scriptSafeJson(const nlohmann::json& data);

// The page: `title` (escaped), the style sheets, the data as the element with id "data", then
// the scripts, in order.
std::string selfContainedPage(const std::string& title, const std::vector<std::string_view>& styles,
                              const nlohmann::json& data,
                              const std::vector<std::string_view>& scripts);

}  // namespace kelvane::tools::report
