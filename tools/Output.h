// Text and JSON renderings of sensors and events. Floats are written with nine significant
// digits so that they read back to the same single-precision value.
#pragma once

#include <android/hardware/sensors/2.1/types.h>

#include <string>
#include <vector>

#include "hardware/sensors/mojom/sensor_kinds.h"

namespace kelvane::tools {

using SensorInfo = android::hardware::sensors::V2_1::SensorInfo;
using Event = android::hardware::sensors::V2_1::Event;

// `text` with control characters (C0, DEL, C1) and backslashes escaped as \n, \t, \\, \x1b or
// \u009b, so that a host-provided string cannot break a table or drive the terminal.
std::string printable(const std::string& text);

// The kind of sensor the library publishes as Android type `type` (its axes, unit, short name,
// default rate); null for a type the library does not publish.
const sensors::SensorKind* sensorKind(android::hardware::sensors::V2_1::SensorType type);

// The unit a person reads a type's values, range and resolution in: "m/s²", "rad/s", "µT",
// "lux"; "" for a type this tool does not know.
const char* valueUnit(android::hardware::sensors::V2_1::SensorType type);

// "%.9g", or "null" where JSON has no number (NaN, infinities).
std::string formatFloat(float value);

// The last part of typeAsString ("android.sensor.accelerometer" -> "accelerometer").
std::string shortTypeName(const SensorInfo& sensor);

// A table, one sensor a row, with a header; numbers carry their units.
std::string sensorTable(const std::vector<SensorInfo>& sensors);
// One JSON array of sensor objects on one line, fields named as in SensorInfo.
std::string sensorsJson(const std::vector<SensorInfo>& sensors);

// "<timestamp> ns [<handle>] <name>: x=.. y=.. z=.. <unit> (status 3)", without a newline.
std::string eventText(const Event& event, const std::string& sensorName);
// One JSON object on one line, without a newline.
std::string eventJson(const Event& event);

// Whether the event carries three axes (one of a three-axis kind).
bool isThreeAxis(const Event& event);
bool isMeta(const Event& event);

}  // namespace kelvane::tools
