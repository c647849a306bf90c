// What one libiio device is in the host's terms: its id, its device-type codes, its channel list
// and the attributes the host answers with. Reads the device through libiio; no state.
//
// Device types follow the kinds of the device's input channels (the sensor kinds this system
// serves), in ascending DeviceType. A client that takes the first type therefore sees an IMU
// with accel and anglvel channels as an accelerometer.
#pragma once

#include <iio.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelvane::host::iio {

// N of "iio:deviceN"; nullopt for triggers and anything else.
std::optional<int32_t> deviceNumber(const iio_device* device);

std::vector<int32_t> deviceTypes(const iio_device* device);

// The device's input channels in the order the host lists them (a channel's index is its
// position): scan elements in scan-index order, then the other input channels in libiio's order.
std::vector<iio_channel*> inputChannels(const iio_device* device);

// A channel's id as libiio names it: "accel_x", "illuminance", "timestamp".
std::string channelId(const iio_channel* channel);

// A device or channel attribute without the sysfs newline; nullopt if absent or unreadable.
std::optional<std::string> readAttribute(const iio_device* device, const char* name);
std::optional<std::string> readChannelAttribute(const iio_channel* channel, const char* name);

// Whether the device can still be read: 0 if one of its attributes reads (a device without any
// counts as readable), else the positive errno of the failed read (ENOENT once it went away).
int deviceReadError(const iio_device* device);

// The text of a positive errno as libiio words it.
std::string errnoText(int error);

// The factor turning the raw values of the device's first kind into Android units: the scale of
// its value channels (per channel, else per type, else the device's "scale", else 1; 1 for a
// channel read through "input", which is already processed), times 100 for magnetometers, whose
// IIO unit is the Gauss and Android's the microtesla. Where the channels' scales differ, the
// first channel's (the X axis) is taken and `disagreement` describes the others.
struct ScaleChoice {
    double scale = 1.0;
    std::string disagreement;  // empty when every channel agrees
};
ScaleChoice chooseScale(const iio_device* device);

// The host's answer to GetAttributes for `name`: "name" is the device name; "location" the
// location attribute, else derived from the label (accel-display: lid, accel-base: base);
// "scale" formatNumber(chooseScale().scale); any other name the device attribute of that name.
std::optional<std::string> hostAttribute(const iio_device* device, const std::string& name);

}  // namespace kelvane::host::iio
