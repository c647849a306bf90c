// A file compiled into the tool (cmake/EmbedAssets.cmake): the web page the tool serves, the
// charting library, the scripts a report inlines. Nothing is fetched at run time.
#pragma once

#include <string_view>

namespace kelvane::tools::web {

struct Asset {
    std::string_view name;         // the file's base name: "uPlot.iife.min.js"
    std::string_view contentType;  // "text/javascript; charset=utf-8"
    std::string_view body;
};

// The charting library (uPlot, from the npm registry through scripts/install-deps): its script
// and style sheet; scales.js, how the page and the reports scale a value axis; and dom.js, how they
// build their elements. Null for any other name.
const Asset* chartAsset(std::string_view name);

}  // namespace kelvane::tools::web
