// Writes host descriptions (docs/tool.md): the one writer of the format DescriptionReader reads.
// Whatever was read comes back equal when written and read again. Sample rows are written one a
// line as they are walked, so a long recording streams out without a JSON tree of its size.
#pragma once

#include <cstdio>
#include <string>

#include "host/description/HostConfig.h"

namespace kelvane::host::description {

// The description as text. Strings that are not UTF-8 (attribute values of a real host, say) are
// written with U+FFFD in place of their bad bytes; a frequency answer that is not a finite number
// is left out, so the request is answered by the maxFrequency rule on replay. The host's run
// settings (speed, streaming, automatic SetUpChannel) are not part of a description.
std::string hostDescriptionText(const HostConfig& config);

// Writes the same text to an open stream. Returns false if a write failed (errno tells why).
bool writeHostDescription(const HostConfig& config, std::FILE* file);

// Writes the description to `path`, replacing what is there. On failure returns false and sets
// *error to one line ("out.json: cannot write: No space left on device").
bool saveHostDescription(const HostConfig& config, const std::string& path, std::string* error);

}  // namespace kelvane::host::description
