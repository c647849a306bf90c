#include "host/common/Recorder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "host/common/RecordingTap.h"
#include "mojo/public/cpp/bindings/interface_ptr.h"

namespace kelvane::host {

namespace {

std::string quoted(const std::string& text) { return nlohmann::json(text).dump(); }

// Shortest text that reads back as the same double.
std::string number(double value) { return nlohmann::json(value).dump(); }

// Microseconds as milliseconds, with the fraction only where there is one: 5000712 -> 5000.712.
std::string milliseconds(int64_t us) {
    std::string text = std::to_string(us / 1000);
    if (int64_t fraction = us % 1000; fraction != 0) {
        char digits[8];
        std::snprintf(digits, sizeof(digits), ".%03d", static_cast<int>(fraction));
        text += digits;
        while (text.back() == '0') text.pop_back();
    }
    return text;
}

template <typename T>
std::string list(const T& items) {
    std::string out = "[";
    for (const auto& item : items) out += (out.size() > 1 ? ", " : "") + std::to_string(item);
    return out + "]";
}

}  // namespace

Recorder::Recorder() = default;
Recorder::~Recorder() = default;

HostConnection::ServiceInterposer Recorder::interposer() {
    return [this](chromeos::sensors::mojom::SensorServicePtr* service) {
        return std::shared_ptr<void>(interpose(service));
    };
}

std::unique_ptr<RecordingTap> Recorder::interpose(
    chromeos::sensors::mojom::SensorServicePtr* service) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (!mStart) mStart = base::TimeTicks::Now();
    }
    chromeos::sensors::mojom::SensorServicePtr client;
    auto tap =
        std::make_unique<RecordingTap>(this, std::move(*service), mojo::MakeRequest(&client));
    *service = std::move(client);
    return tap;
}

int64_t Recorder::nowUsLocked() const {
    return mStart ? (base::TimeTicks::Now() - *mStart).InMicroseconds() : 0;
}

void Recorder::listed(const base::flat_map<int32_t, std::vector<int32_t>>& devices) {
    std::lock_guard<std::mutex> lock(mMutex);
    for (const auto& [id, types] : devices) deviceLocked(id).types = types;
}

void Recorder::listedType(int32_t type, const std::vector<int32_t>& ids) {
    std::lock_guard<std::mutex> lock(mMutex);
    for (int32_t id : ids) {
        std::vector<int32_t>& types = deviceLocked(id).types;
        if (std::find(types.begin(), types.end(), type) == types.end()) types.push_back(type);
    }
}

void Recorder::opened(int32_t device) {
    std::lock_guard<std::mutex> lock(mMutex);
    deviceLocked(device);
}

void Recorder::channelsAsked(int32_t device) {
    std::lock_guard<std::mutex> lock(mMutex);
    deviceLocked(device).channelsPending = true;
}

void Recorder::channels(int32_t device, const std::vector<std::string>& ids) {
    std::lock_guard<std::mutex> lock(mMutex);
    Device& d = deviceLocked(device);
    d.channels = ids;
    d.channelsPending = false;
}

void Recorder::attributesAsked(int32_t device) {
    std::lock_guard<std::mutex> lock(mMutex);
    deviceLocked(device).attributesPending = true;
}

void Recorder::attributes(int32_t device, const std::vector<std::string>& names,
                          const std::vector<base::Optional<std::string>>& values) {
    std::lock_guard<std::mutex> lock(mMutex);
    Device& d = deviceLocked(device);
    d.attributesPending = false;
    for (size_t i = 0; i < names.size(); ++i) {
        std::optional<std::string> value;
        if (i < values.size() && values[i]) value = *values[i];
        d.attributes[names[i]] = value;
    }
}

void Recorder::frequency(int32_t device, double requested, double answered) {
    std::lock_guard<std::mutex> lock(mMutex);
    auto& answers = deviceLocked(device).frequencyAnswers;
    for (auto& answer : answers) {
        if (answer.first == requested) {
            answer.second = answered;
            return;
        }
    }
    answers.emplace_back(requested, answered);
}

void Recorder::channelsEnabled(int32_t device, bool enable, const std::vector<int32_t>& failed) {
    if (!enable) return;  // the library only enables; a failure to disable changes nothing seen
    std::lock_guard<std::mutex> lock(mMutex);
    deviceLocked(device).failChannels.insert(failed.begin(), failed.end());
}

uint64_t Recorder::observerStarted(int32_t) {
    std::lock_guard<std::mutex> lock(mMutex);
    return ++mObservers;
}

void Recorder::sample(int32_t device, uint64_t observer,
                      const base::flat_map<int32_t, int64_t>& sample) {
    std::lock_guard<std::mutex> lock(mMutex);
    Device& d = deviceLocked(device);
    if (!d.atUs.empty() && observer != d.lastObserver) d.restarts.push_back(d.atUs.size());
    d.lastObserver = observer;
    d.atUs.push_back(nowUsLocked());
    for (const auto& [key, value] : sample) {
        d.keys.push_back(key);
        d.values.push_back(value);
    }
    d.ends.push_back(d.keys.size());
}

void Recorder::observerError(int32_t device, int32_t type) {
    std::lock_guard<std::mutex> lock(mMutex);
    mTimeline.push_back(Event{nowUsLocked(), "observerError", device, type, 0, ""});
}

void Recorder::deviceLost(int32_t device) {
    std::lock_guard<std::mutex> lock(mMutex);
    deviceLocked(device).lost = true;
    mTimeline.push_back(Event{nowUsLocked(), "closeDevice", device, 0, 0, ""});
}

void Recorder::serviceClosed(uint32_t reason, const std::string& description) {
    std::lock_guard<std::mutex> lock(mMutex);
    mTimeline.push_back(Event{nowUsLocked(), "closeService", 0, 0, reason, description});
}

void Recorder::writeDeviceLocked(std::string& out, int32_t id, const Device& d) const {
    out += "    {\"id\": " + std::to_string(id) + ", \"types\": " + list(d.types);
    if (d.channels) {
        out += ",\n     \"channels\": [";
        for (size_t i = 0; i < d.channels->size(); ++i) {
            out += (i ? ", " : "") + quoted((*d.channels)[i]);
        }
        out += "]";
    }
    if (!d.attributes.empty()) {
        out += ",\n     \"attributes\": {";
        bool first = true;
        for (const auto& [name, value] : d.attributes) {
            out += (first ? "" : ", ") + quoted(name) + ": " + (value ? quoted(*value) : "null");
            first = false;
        }
        out += "}";
    }
    if (!d.frequencyAnswers.empty()) {
        out += ",\n     \"frequencyAnswers\": [";
        for (size_t i = 0; i < d.frequencyAnswers.size(); ++i) {
            out += (i ? ", [" : "[") + number(d.frequencyAnswers[i].first) + ", " +
                   number(d.frequencyAnswers[i].second) + "]";
        }
        out += "]";
    }
    if (!d.failChannels.empty()) out += ",\n     \"failChannels\": " + list(d.failChannels);
    // A handshake step the host never answered, while the device was still there.
    if (!d.lost && d.channelsPending) {
        out += ",\n     \"stall\": \"channels\"";
    } else if (!d.lost && d.attributesPending) {
        out += ",\n     \"stall\": \"attributes\"";
    }
    if (!d.atUs.empty()) {
        // Columns: every channel any sample held, in index order.
        const std::set<int32_t> keys(d.keys.begin(), d.keys.end());
        const std::vector<int32_t> columns(keys.begin(), keys.end());
        out += ",\n     \"timedSamples\": {\"channels\": " + list(columns);
        if (!d.restarts.empty()) out += ", \"restarts\": " + list(d.restarts);
        out += ", \"samples\": [\n";
        int64_t previous = 0;
        size_t begin = 0;
        for (size_t i = 0; i < d.atUs.size(); ++i) {
            out += "      [" + std::to_string(d.atUs[i] - previous);
            previous = d.atUs[i];
            size_t at = begin;  // a sample's keys are in ascending order, like the columns
            for (int32_t column : columns) {
                out += ',';
                if (at < d.ends[i] && d.keys[at] == column) {
                    out += std::to_string(d.values[at++]);
                } else {
                    out += "null";
                }
            }
            out += i + 1 < d.atUs.size() ? "],\n" : "]\n";
            begin = d.ends[i];
        }
        out += "     ]}";
    }
    out += "}";
}

std::string Recorder::description() const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::string out = "{\n  \"devices\": [\n";
    bool first = true;
    for (const auto& [id, device] : mDevices) {
        if (!first) out += ",\n";
        first = false;
        writeDeviceLocked(out, id, device);
    }
    out += "\n  ],\n  \"timeline\": [";
    for (size_t i = 0; i < mTimeline.size(); ++i) {
        const Event& e = mTimeline[i];
        out += std::string(i ? "," : "") + "\n    {\"atMs\": " + milliseconds(e.atUs) +
               ", \"action\": \"" + e.action + "\"";
        if (e.action == "observerError") {
            out += ", \"device\": " + std::to_string(e.device) +
                   ", \"error\": " + std::to_string(e.error);
        } else if (e.action == "closeDevice") {
            out += ", \"device\": " + std::to_string(e.device);
        } else {
            out += ", \"reason\": " + std::to_string(e.reason) +
                   ", \"description\": " + quoted(e.description);
        }
        out += "}";
    }
    out += mTimeline.empty() ? "]\n}\n" : "\n  ]\n}\n";
    return out;
}

bool Recorder::write(const std::string& path, std::string* error) const {
    const std::string text = description();
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) {
        *error = path + ": cannot write: " + std::strerror(errno);
        return false;
    }
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    const int writeErrno = errno;
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed) {
        *error = path + ": cannot write: " + std::strerror(written ? errno : writeErrno);
        return false;
    }
    return true;
}

}  // namespace kelvane::host
