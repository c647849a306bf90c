#include "host/libiio/LibiioHost.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "base/bind.h"
#include "base/location.h"
#include "hardware/sensors/mojom/vel.mojom.h"
#include "host/libiio/IioDeviceInfo.h"
#include "host/libiio/LibiioSensorService.h"

namespace kelvane::host::iio {

namespace {

bool servesAnyDevice(const iio_context* context) {
    const unsigned int count = iio_context_get_devices_count(context);
    for (unsigned int i = 0; i < count; ++i) {
        const iio_device* device = iio_context_get_device(context, i);
        if (deviceNumber(device) && !deviceTypes(device).empty()) return true;
    }
    return false;
}

// On this machine, the first served device whose buffer the process may not read
// ("/dev/iio:deviceN"), else "": reading it needs root or the group that owns the node.
std::string unreadableLocalDevice(const iio_context* context) {
    const unsigned int count = iio_context_get_devices_count(context);
    for (unsigned int i = 0; i < count; ++i) {
        const iio_device* device = iio_context_get_device(context, i);
        const std::optional<int32_t> number = deviceNumber(device);
        if (!number || deviceTypes(device).empty()) continue;
        bool buffered = false;
        for (const iio_channel* channel : inputChannels(device)) {
            buffered = buffered || iio_channel_is_scan_element(channel);
        }
        const std::string node = "/dev/iio:device" + std::to_string(*number);
        if (buffered && access(node.c_str(), R_OK) != 0 && errno == EACCES) return node;
    }
    return {};
}

std::set<int32_t> typesStampingTheirScans(const iio_context* context) {
    std::set<int32_t> types;
    const unsigned int count = iio_context_get_devices_count(context);
    for (unsigned int i = 0; i < count; ++i) {
        const iio_device* device = iio_context_get_device(context, i);
        const std::vector<int32_t> served = deviceTypes(device);
        if (!deviceNumber(device) || served.empty()) continue;
        for (const iio_channel* channel : inputChannels(device)) {
            if (iio_channel_is_scan_element(channel) && channelId(channel) == "timestamp") {
                types.insert(served.front());
            }
        }
    }
    return types;
}

}  // namespace

std::unique_ptr<LibiioHost> LibiioHost::open(const std::string& uri, std::string* error) {
    // libiio writes into the URI it parses ("ip:HOST:PORT" loses its port): it gets a copy.
    std::vector<char> uriCopy(uri.begin(), uri.end());
    uriCopy.push_back('\0');
    errno = 0;
    iio_context* context = iio_create_context_from_uri(uriCopy.data());
    if (context == nullptr) {
        const int code = errno ? errno : EIO;
        if (code == ENOENT && uri.rfind("local:", 0) == 0) {
            *error = "no IIO devices on this machine (" + uri + ")";
        } else {
            *error = "cannot open IIO context \"" + uri + "\": " + errnoText(code);
        }
        return nullptr;
    }
    if (!servesAnyDevice(context)) {
        *error = "no IIO sensor in \"" + uri +
                 "\" (looked for accel, anglvel, illuminance, magn and gravity channels)";
        iio_context_destroy(context);
        return nullptr;
    }
    if (uri.rfind("local:", 0) == 0) {
        const std::string node = unreadableLocalDevice(context);
        if (!node.empty()) {
            *error = "permission denied reading " + node +
                     " (run as root or as a member of the group that owns it)";
            iio_context_destroy(context);
            return nullptr;
        }
    }
    return std::unique_ptr<LibiioHost>(new LibiioHost(context));
}

LibiioHost::LibiioHost(iio_context* context)
    : mContext(context, iio_context_destroy),
      mSelfStampedTypes(typesStampingTheirScans(context)),
      mCore("libiio-host", vel::mojom::kBridgeVersion, /*autoSetUpChannel=*/true, *this) {}

LibiioHost::~LibiioHost() = default;  // mCore goes first: see the header

void LibiioHost::bindService(chromeos::sensors::mojom::SensorServiceRequest request) {
    mServices.push_back(std::make_unique<LibiioSensorService>(
        mContext.get(), &mCore.log(), &mScaleWarned, mCore.runner(), std::move(request)));
}

void LibiioHost::closeDevices() { mServices.clear(); }

}  // namespace kelvane::host::iio
