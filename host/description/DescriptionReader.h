// Reads host descriptions (docs/tool.md), hand-written or recorded, into a HostConfig; every
// refusal is one line naming where the text is at fault. DescriptionWriter writes them.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "host/description/HostConfig.h"

namespace kelvane::host::description {

// Parses a description. On failure returns false, leaves *out untouched and sets *error to one
// line naming the JSON path and the problem ("/devices/0/types/1: expected an integer") or, for
// malformed JSON, the position ("line 3, column 7: syntax error ..."). Never throws.
bool parseHostDescription(const std::string& text, HostConfig* out, std::string* error);

// The largest description read: room for a recording of five sensors at 400 Hz for about two
// hours. Larger files are refused before reading, endless ones (pipes, devices) at this size.
constexpr size_t kMaxDescriptionBytes = size_t{512} << 20;

// Reads and parses a file, "-" standard input, in one pass over the text and without holding it.
// Errors are prefixed with the path as given, "<stdin>" for "-" ("host.json: /devices/0: unknown
// key \"colour\"", "host.json: is a directory, not a host description"). While it waits for
// input, `stop` is asked every 100 ms; once it answers true the load fails ("cannot read:
// Interrupted system call").
bool loadHostDescription(const std::string& path, HostConfig* out, std::string* error,
                         size_t limit = kMaxDescriptionBytes,
                         const std::function<bool()>& stop = nullptr);

}  // namespace kelvane::host::description
