// A scripted host sensor service and device, and a recorder for replies, for testing the bindings
// across threads. Fakes run on the thread that binds them; what they record is guarded by their
// Signal's mutex.
#pragma once

#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/bind.h"
#include "base/callback.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "mojo/public/cpp/bindings/binding.h"
#include "tests/support/wait.h"

namespace kelvane::testing {

namespace cm = chromeos::sensors::mojom;

// One reply (or one-way call) received: its value, how often it ran and on which thread.
template <typename T>
class Reply {
  public:
    template <typename Arg = const T&>
    base::OnceCallback<void(Arg)> Callback() {
        return base::BindOnce(&Reply::Store<Arg>, base::Unretained(this));
    }
    template <typename Arg>
    void Store(Arg value) {
        signal.Notify([&] {
            mValue = value;
            mThread = std::this_thread::get_id();
            ++mRuns;
        });
    }
    bool Wait() {
        return signal.WaitUntil([&] { return mRuns > 0; });
    }
    T value() { return Read(mValue); }
    std::thread::id thread() { return Read(mThread); }
    int runs() { return Read(mRuns); }

    Signal signal;

  private:
    template <typename V>
    V Read(const V& field) {
        std::lock_guard<std::mutex> lock(signal.mutex());
        return field;
    }

    T mValue{};               // guarded by signal
    std::thread::id mThread;  // guarded by signal
    int mRuns = 0;            // guarded by signal
};

// Host side of an opened device: four channels, "raw" attributes on the three axes.
class FakeSensorDevice : public cm::SensorDevice {
  public:
    void SetTimeout(uint32_t timeout) override {
        signal.Notify([&] { this->timeout = timeout; });
    }
    // "label" is present but empty, unlike a missing attribute.
    void GetAttributes(const std::vector<std::string>& attr_names,
                       GetAttributesCallback callback) override {
        std::vector<base::Optional<std::string>> values;
        for (const std::string& name : attr_names) {
            values.push_back(name == "name"    ? base::Optional<std::string>("cros-ec-accel")
                             : name == "label" ? base::Optional<std::string>("")
                                               : base::nullopt);
        }
        std::move(callback).Run(values);
    }
    void SetFrequency(double frequency, SetFrequencyCallback callback) override {
        signal.Notify([&] { requestedFrequency = frequency; });
        std::move(callback).Run(frequency > 100.0 ? 100.0 : frequency);
    }
    void StartReadingSamples(cm::SensorDeviceSamplesObserverPtr observer) override {
        this->observer = std::move(observer);
        signal.Notify([&] { observing = true; });
    }
    void StopReadingSamples() override {
        observer.reset();
        signal.Notify([&] {
            observing = false;
            ++stops;
        });
    }
    void GetAllChannelIds(GetAllChannelIdsCallback callback) override {
        std::unique_lock<std::mutex> lock(signal.mutex());
        if (!holdChannelIds) {
            lock.unlock();
            std::move(callback).Run({"accel_x", "accel_y", "accel_z", "timestamp"});
            return;
        }
        held.push_back(std::move(callback));
        lock.unlock();
        signal.Notify();
    }
    // Channels 0 to 3 exist; even ones read as enabled.
    void SetChannelsEnabled(const std::vector<int32_t>& iio_chn_indices, bool en,
                            SetChannelsEnabledCallback callback) override {
        std::vector<int32_t> failed;
        for (int32_t i : iio_chn_indices) {
            if (i < 0 || i >= 4) failed.push_back(i);
        }
        signal.Notify([&] { enableRequest = {iio_chn_indices, en}; });
        std::move(callback).Run(failed);
    }
    void GetChannelsEnabled(const std::vector<int32_t>& iio_chn_indices,
                            GetChannelsEnabledCallback callback) override {
        std::vector<bool> result;
        for (int32_t i : iio_chn_indices) result.push_back(i % 2 == 0);
        std::move(callback).Run(result);
    }
    void GetChannelsAttributes(const std::vector<int32_t>& iio_chn_indices,
                               const std::string& attr_name,
                               GetChannelsAttributesCallback callback) override {
        std::vector<base::Optional<std::string>> values;
        for (int32_t i : iio_chn_indices) {
            bool has = attr_name == "raw" && i >= 0 && i < 3;
            values.push_back(has ? base::make_optional(std::to_string(i * 10)) : base::nullopt);
        }
        std::move(callback).Run(values);
    }

    cm::SensorDeviceSamplesObserverPtr observer;  // bound thread only

    Signal signal;
    uint32_t timeout = 0;                                 // guarded by signal
    double requestedFrequency = 0.0;                      // guarded by signal
    std::pair<std::vector<int32_t>, bool> enableRequest;  // guarded by signal
    bool observing = false;                               // guarded by signal
    int stops = 0;                                        // guarded by signal
    bool holdChannelIds = false;  // guarded by signal: keep the reply callbacks in `held`
    std::vector<GetAllChannelIdsCallback> held;  // guarded by signal
};

// Host side of the sensor service: devices 0 and 3 are accelerometers, 3 also gravity, 7 of a
// kind unknown here. GetDevice opens `device` whatever the id.
class FakeSensorService : public cm::SensorService {
  public:
    void GetDeviceIds(cm::DeviceType type, GetDeviceIdsCallback callback) override {
        std::move(callback).Run(type == cm::DeviceType::ACCEL ? std::vector<int32_t>{0, 3}
                                                              : std::vector<int32_t>{});
    }
    void GetAllDeviceIds(GetAllDeviceIdsCallback callback) override {
        std::move(callback).Run({{7, {42}}, {0, {1}}, {3, {1, 11}}});
    }
    void GetDevice(int32_t iio_device_id, cm::SensorDeviceRequest device_request) override {
        if (deviceBinding.is_bound()) deviceBinding.Close();
        deviceBinding.Bind(std::move(device_request));
        signal.Notify([&] { openedId = iio_device_id; });
    }
    void RegisterNewDevicesObserver(cm::SensorServiceNewDevicesObserverPtr observer) override {
        newDevicesObserver = std::move(observer);
        signal.Notify([&] { observerRegistered = true; });
    }

    FakeSensorDevice device;
    // Bound thread only.
    mojo::Binding<cm::SensorDevice> deviceBinding{&device};
    cm::SensorServiceNewDevicesObserverPtr newDevicesObserver;

    Signal signal;
    int32_t openedId = -1;            // guarded by signal
    bool observerRegistered = false;  // guarded by signal
};

}  // namespace kelvane::testing
