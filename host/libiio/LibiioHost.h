// A Chrome OS host serving real IIO devices through libiio: those of this machine ("local:"),
// of a board running iiod ("ip:HOST"), or of any context URI libiio accepts. It answers the
// host's Mojo interfaces on its own thread; each streaming device reads on a thread of its own.
#pragma once

#include <iio.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "hardware/sensors/mojom/sensor.mojom.h"
#include "host/common/Host.h"
#include "host/common/HostCore.h"

namespace kelvane::host::iio {

class LibiioSensorService;

class LibiioHost : public common::Host, private common::HostCore::Devices {
  public:
    // Opens the context of `uri`. Null with a one-line `*error` when libiio cannot open it or it
    // holds no device this host serves (accel, anglvel, illuminance, magn or gravity channels).
    static std::unique_ptr<LibiioHost> open(const std::string& uri, std::string* error);

    // Unregisters, closes every endpoint and joins every reader on the host thread, then stops it
    // and frees the context.
    ~LibiioHost() override;
    LibiioHost(const LibiioHost&) = delete;
    LibiioHost& operator=(const LibiioHost&) = delete;

    // The device-type codes (each device's first) of the devices whose samples carry their own
    // timestamp, taken on the clock of the machine the devices are on: buffered devices with a
    // timestamp scan element. Other devices' samples are stamped here, on reading. Any thread.
    const std::set<int32_t>& selfStampedTypes() const { return mSelfStampedTypes; }

  private:
    explicit LibiioHost(iio_context* context);
    void bindService(chromeos::sensors::mojom::SensorServiceRequest request) override;
    void closeDevices() override;
    common::HostCore& core() override { return mCore; }
    const common::HostCore& core() const override { return mCore; }

    // Freed last, after the host thread stopped.
    const std::unique_ptr<iio_context, void (*)(iio_context*)> mContext;
    const std::set<int32_t> mSelfStampedTypes;

    // Host thread only. The core, destroyed first, stops that thread before any of these goes.
    std::set<int32_t> mScaleWarned;
    std::vector<std::unique_ptr<LibiioSensorService>> mServices;
    common::HostCore mCore;  // last
};

}  // namespace kelvane::host::iio
