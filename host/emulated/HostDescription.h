// A host described in JSON, for the command-line bench: which IIO devices the emulated host serves
// and what it does to them over time. The format is documented in docs/tool.md.
#pragma once

#include <cstddef>
#include <string>

#include "host/emulated/VirtualDevice.h"

namespace kelvane::host {

// Parses a description. On failure returns false, leaves *out untouched and sets *error to one
// line naming the JSON path and the problem ("/devices/0/types/1: expected an integer") or, for
// malformed JSON, the position ("line 3, column 7: syntax error ..."). Never throws.
bool parseHostDescription(const std::string& text, HostConfig* out, std::string* error);

// The largest description read: room for a recording of five sensors at 400 Hz for about two
// hours. Larger files are refused before reading, endless ones (pipes, devices) at this size.
constexpr size_t kMaxDescriptionBytes = size_t{512} << 20;

// Reads and parses a file, in one pass over the text and without holding it. Errors are prefixed
// with the path as given ("host.json: /devices/0: unknown key \"colour\"", "host.json: is a
// directory, not a host description").
bool loadHostDescription(const std::string& path, HostConfig* out, std::string* error,
                         size_t limit = kMaxDescriptionBytes);

// The host used when no description is given: accelerometer, gyroscope and magnetometer in the
// lid, ambient light in the base and a gravity sensor, all streaming generated samples.
HostConfig builtInHost();

}  // namespace kelvane::host
