#include "host/libiio/IioDeviceInfo.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "hardware/sensors/mojom/sensor_kinds.h"
#include "host/libiio/IioNumbers.h"

namespace kelvane::host::iio {

namespace {

constexpr char kDevicePrefix[] = "iio:device";
constexpr size_t kAttributeSize = 4096;

using sensors::DeviceType;

// libiio's channel type of each served kind's value channels. Ascending DeviceType: the order
// of deviceTypes().
struct Kind {
    iio_chan_type type;
    DeviceType deviceType;
};
constexpr Kind kKinds[] = {
    {IIO_ACCEL, DeviceType::ACCEL},     {IIO_ANGL_VEL, DeviceType::ANGLVEL},
    {IIO_LIGHT, DeviceType::LIGHT},     {IIO_MAGN, DeviceType::MAGN},
    {IIO_GRAVITY, DeviceType::GRAVITY},
};

std::optional<std::string> attributeText(ssize_t length, const char* text) {
    if (length < 0) return std::nullopt;
    std::string value(text, strnlen(text, static_cast<size_t>(length)));
    // libiio drops the last byte, normally the newline; iiod and odd drivers may leave one.
    while (!value.empty() && (value.back() == '\n' || value.back() == '\r')) value.pop_back();
    return value;
}

bool isValueChannel(const iio_channel* channel, iio_chan_type type) {
    return !iio_channel_is_output(channel) && iio_channel_get_type(channel) == type;
}

std::optional<double> channelScale(const iio_channel* channel, const iio_device* device) {
    if (iio_channel_find_attr(channel, "raw") == nullptr &&
        iio_channel_find_attr(channel, "input") != nullptr) {
        return 1.0;
    }
    if (std::optional<std::string> text = readChannelAttribute(channel, "scale")) {
        return parseNumber(*text);
    }
    if (std::optional<std::string> text = readAttribute(device, "scale")) return parseNumber(*text);
    return 1.0;
}

}  // namespace

std::optional<int32_t> deviceNumber(const iio_device* device) {
    if (iio_device_is_trigger(device)) return std::nullopt;
    const char* id = iio_device_get_id(device);
    const size_t prefix = sizeof(kDevicePrefix) - 1;
    if (id == nullptr || std::strncmp(id, kDevicePrefix, prefix) != 0) return std::nullopt;
    const char* digits = id + prefix;
    const char* end = digits + std::strlen(digits);
    int32_t number = 0;
    const auto result = std::from_chars(digits, end, number);
    if (result.ec != std::errc() || result.ptr != end || digits == end) return std::nullopt;
    return number;
}

std::vector<int32_t> deviceTypes(const iio_device* device) {
    std::vector<int32_t> types;
    for (const Kind& kind : kKinds) {
        for (const iio_channel* channel : inputChannels(device)) {
            if (isValueChannel(channel, kind.type)) {
                types.push_back(static_cast<int32_t>(kind.deviceType));
                break;
            }
        }
    }
    return types;
}

std::vector<iio_channel*> inputChannels(const iio_device* device) {
    std::vector<iio_channel*> scan, other;
    const unsigned int count = iio_device_get_channels_count(device);
    for (unsigned int i = 0; i < count; ++i) {
        iio_channel* channel = iio_device_get_channel(device, i);
        if (iio_channel_is_output(channel)) continue;
        (iio_channel_is_scan_element(channel) ? scan : other).push_back(channel);
    }
    std::stable_sort(scan.begin(), scan.end(), [](const iio_channel* a, const iio_channel* b) {
        return iio_channel_get_index(a) < iio_channel_get_index(b);
    });
    scan.insert(scan.end(), other.begin(), other.end());
    return scan;
}

std::string channelId(const iio_channel* channel) {
    const char* id = iio_channel_get_id(channel);
    return id ? id : "";
}

std::optional<std::string> readAttribute(const iio_device* device, const char* name) {
    if (iio_device_find_attr(device, name) == nullptr) return std::nullopt;
    char text[kAttributeSize] = {};
    return attributeText(iio_device_attr_read(device, name, text, sizeof(text)), text);
}

std::optional<std::string> readChannelAttribute(const iio_channel* channel, const char* name) {
    if (iio_channel_find_attr(channel, name) == nullptr) return std::nullopt;
    char text[kAttributeSize] = {};
    return attributeText(iio_channel_attr_read(channel, name, text, sizeof(text)), text);
}

int deviceReadError(const iio_device* device) {
    char text[kAttributeSize] = {};
    ssize_t read = 0;
    if (iio_device_get_attrs_count(device) > 0) {
        read = iio_device_attr_read(device, iio_device_get_attr(device, 0), text, sizeof(text));
    } else {
        for (const iio_channel* channel : inputChannels(device)) {
            if (iio_channel_get_attrs_count(channel) == 0) continue;
            read = iio_channel_attr_read(channel, iio_channel_get_attr(channel, 0), text,
                                         sizeof(text));
            break;
        }
    }
    return read < 0 ? static_cast<int>(-read) : 0;
}

std::string errnoText(int error) {
    char text[256];
    iio_strerror(error, text, sizeof(text));
    return text;
}

ScaleChoice chooseScale(const iio_device* device) {
    ScaleChoice choice;
    const std::vector<int32_t> types = deviceTypes(device);
    if (types.empty()) return choice;
    const Kind kind = *std::find_if(std::begin(kKinds), std::end(kKinds), [&](const Kind& k) {
        return static_cast<int32_t>(k.deviceType) == types.front();
    });
    std::vector<std::pair<std::string, double>> scales;
    for (const iio_channel* channel : inputChannels(device)) {
        if (!isValueChannel(channel, kind.type)) continue;
        scales.emplace_back(channelId(channel), channelScale(channel, device).value_or(1.0));
    }
    if (scales.empty()) return choice;
    choice.scale = scales.front().second;
    const bool agree = std::all_of(scales.begin(), scales.end(),
                                   [&](const auto& s) { return s.second == choice.scale; });
    if (!agree) {
        for (const auto& [id, scale] : scales) {
            choice.disagreement +=
                (choice.disagreement.empty() ? "" : ", ") + id + " " + formatNumber(scale);
        }
    }
    // IIO's unit to Android's (Gauss to microtesla, say).
    choice.scale *= sensors::kindOf(kind.deviceType)->iioToAndroid;
    return choice;
}

std::optional<std::string> hostAttribute(const iio_device* device, const std::string& name) {
    if (name == "name") {
        const char* deviceName = iio_device_get_name(device);
        return deviceName ? std::optional<std::string>(deviceName) : std::nullopt;
    }
    if (name == "location") {
        if (std::optional<std::string> location = readAttribute(device, "location")) {
            return location;
        }
        const char* label = iio_device_get_label(device);
        if (label == nullptr) return std::nullopt;
        if (std::strcmp(label, "accel-display") == 0) return "lid";
        if (std::strcmp(label, "accel-base") == 0) return "base";
        return std::nullopt;
    }
    if (name == "scale") return formatNumber(chooseScale(device).scale);
    return readAttribute(device, name.c_str());
}

}  // namespace kelvane::host::iio
