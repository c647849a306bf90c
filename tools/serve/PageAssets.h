// The page `serve` shows, compiled into the tool from page/ (index.html, app.js, style.css).
#pragma once

#include "Asset.h"

namespace kelvane::tools::web {

// Null for any other name.
const Asset* servePageAsset(std::string_view name);

}  // namespace kelvane::tools::web
