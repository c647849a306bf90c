#include "host/description/DescriptionReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "host/description/DescriptionNames.h"
#include "host/description/JsonReader.h"

namespace kelvane::host::description {

namespace {

using nlohmann::json;

constexpr int64_t kInt32Min = std::numeric_limits<int32_t>::min();
constexpr int64_t kInt32Max = std::numeric_limits<int32_t>::max();
constexpr int64_t kUint32Max = std::numeric_limits<uint32_t>::max();
constexpr int64_t kInt64Min = std::numeric_limits<int64_t>::min();
constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();

std::string child(const std::string& path, const std::string& key) {
    return path + "/" + jsonPointerToken(key);
}

std::string child(const std::string& path, size_t index) {
    return path + "/" + std::to_string(index);
}

// Where recorded sample rows sit; the reader keeps them flat rather than as a tree.
const JsonRowsPattern kTimedRows = {"devices", "*", "timedSamples", "samples"};

// Walks the description keeping the first error. Every check returns false once it has failed.
class Reader {
  public:
    explicit Reader(JsonDocument& doc) : mDoc(doc) {}

    const std::string& error() const { return mError; }

    // The rows captured at `path`; null if that array was not captured.
    JsonRows* rows(const std::string& path) {
        auto it = mDoc.rows.find(path);
        return it == mDoc.rows.end() ? nullptr : &it->second;
    }

    bool fail(const std::string& path, const std::string& what) {
        if (mError.empty()) mError = (path.empty() ? "/" : path) + ": " + what;
        return false;
    }

    // An object whose keys are all in `allowed`.
    bool object(const json& value, const std::string& path,
                std::initializer_list<const char*> allowed) {
        if (!value.is_object()) return fail(path, "expected an object");
        for (const auto& item : value.items()) {
            bool known = false;
            for (const char* key : allowed) known = known || item.key() == key;
            if (!known) return fail(path, "unknown key \"" + item.key() + "\"");
        }
        return true;
    }

    bool require(const json& object, const std::string& path, const char* key) {
        if (object.contains(key)) return true;
        return fail(path, std::string("missing key \"") + key + "\"");
    }

    bool array(const json& value, const std::string& path) {
        return value.is_array() || fail(path, "expected an array");
    }

    bool integer(const json& value, const std::string& path, int64_t min, int64_t max,
                 int64_t* out) {
        if (!value.is_number_integer()) return fail(path, "expected an integer");
        int64_t v = 0;
        if (value.is_number_unsigned()) {
            uint64_t u = value.get<uint64_t>();
            if (u > static_cast<uint64_t>(max)) return outOfRange(path, value.dump(), min, max);
            v = static_cast<int64_t>(u);
        } else {
            v = value.get<int64_t>();
        }
        if (v < min || v > max) return outOfRange(path, value.dump(), min, max);
        *out = v;
        return true;
    }

    bool int32(const json& value, const std::string& path, int32_t* out) {
        int64_t v = 0;
        if (!integer(value, path, kInt32Min, kInt32Max, &v)) return false;
        *out = static_cast<int32_t>(v);
        return true;
    }

    bool int32List(const json& value, const std::string& path, std::vector<int32_t>* out) {
        if (!array(value, path)) return false;
        std::vector<int32_t> list;
        for (size_t i = 0; i < value.size(); ++i) {
            int32_t v = 0;
            if (!int32(value[i], child(path, i), &v)) return false;
            list.push_back(v);
        }
        *out = std::move(list);
        return true;
    }

    bool string(const json& value, const std::string& path, std::string* out) {
        if (!value.is_string()) return fail(path, "expected a string");
        *out = value.get<std::string>();
        return true;
    }

    bool boolean(const json& value, const std::string& path, bool* out) {
        if (!value.is_boolean()) return fail(path, "expected true or false");
        *out = value.get<bool>();
        return true;
    }

    bool number(const json& value, const std::string& path, double* out) {
        if (!value.is_number()) return fail(path, "expected a number");
        *out = value.get<double>();
        return true;
    }

    // One of the spellings in `names`, as its value.
    template <typename Enum, size_t N>
    bool choice(const json& value, const std::string& path, const Spelling<Enum> (&names)[N],
                Enum* out) {
        std::string text;
        if (!string(value, path, &text)) return false;
        std::string expected;
        for (size_t i = 0; i < N; ++i) {
            if (text == names[i].name) {
                *out = names[i].value;
                return true;
            }
            expected += std::string(i == 0       ? ""
                                    : i + 1 == N ? " or "
                                                 : ", ") +
                        "\"" + names[i].name + "\"";
        }
        return fail(path, "expected " + expected + ", got \"" + text + "\"");
    }

  private:
    bool outOfRange(const std::string& path, const std::string& text, int64_t min, int64_t max) {
        return fail(path,
                    text + " is out of range " + std::to_string(min) + ".." + std::to_string(max));
    }

    JsonDocument& mDoc;
    std::string mError;
};

// A channel index written as an object key: the canonical decimal form of an int32.
bool channelKey(const std::string& key, int32_t* out) {
    if (key.empty() || key.size() > 11) return false;
    char* end = nullptr;
    errno = 0;
    long long v = std::strtoll(key.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < kInt32Min || v > kInt32Max) return false;
    if (std::to_string(v) != key) return false;  // no '+', spaces or leading zeros
    *out = static_cast<int32_t>(v);
    return true;
}

bool readSamples(Reader& r, const json& value, const std::string& path,
                 std::vector<std::map<int32_t, int64_t>>* out) {
    if (!r.array(value, path)) return false;
    std::vector<std::map<int32_t, int64_t>> samples;
    for (size_t i = 0; i < value.size(); ++i) {
        const std::string samplePath = child(path, i);
        if (!value[i].is_object()) return r.fail(samplePath, "expected an object");
        std::map<int32_t, int64_t> sample;
        for (const auto& item : value[i].items()) {
            const std::string itemPath = child(samplePath, item.key());
            int32_t channel = 0;
            if (!channelKey(item.key(), &channel)) {
                return r.fail(itemPath, "key \"" + item.key() +
                                            "\" is not a channel index (a decimal int32)");
            }
            int64_t raw = 0;
            if (!r.integer(item.value(), itemPath, kInt64Min, kInt64Max, &raw)) return false;
            sample[channel] = raw;
        }
        samples.push_back(std::move(sample));
    }
    *out = std::move(samples);
    return true;
}

// "restarts": ascending indices of samples sent to a new observer.
bool readRestarts(Reader& r, const json& restarts, const std::string& path, TimedSamples* timed) {
    const std::string restartsPath = child(path, "restarts");
    if (!r.array(restarts, restartsPath)) return false;
    for (size_t i = 0; i < restarts.size(); ++i) {
        int64_t index = 0;
        const int64_t last = static_cast<int64_t>(timed->size()) - 1;
        if (!r.integer(restarts[i], child(restartsPath, i), 0, std::max<int64_t>(last, 0),
                       &index)) {
            return false;
        }
        if (!timed->restarts.empty() && static_cast<size_t>(index) <= timed->restarts.back()) {
            return r.fail(child(restartsPath, i), "expected ascending sample indices");
        }
        timed->restarts.push_back(static_cast<size_t>(index));
    }
    return true;
}

// {"channels": [0, 1, 2, 3], "restarts": [120], "samples": [[atUs delta, v0, v1, v2, v3], ...]}:
// each row is the time in microseconds since the previous sample (the first: since
// SetUpChannel), then one raw value per listed channel, null where the sample lacks it.
bool readTimedSamples(Reader& r, const json& value, const std::string& path,
                      std::shared_ptr<const TimedSamples>* out) {
    if (!r.object(value, path, {"channels", "restarts", "samples"}) ||
        !r.require(value, path, "channels") || !r.require(value, path, "samples")) {
        return false;
    }
    auto timed = std::make_shared<TimedSamples>();
    const std::string channelsPath = child(path, "channels");
    if (!r.int32List(value["channels"], channelsPath, &timed->channels)) return false;
    std::set<int32_t> seen;
    for (size_t i = 0; i < timed->channels.size(); ++i) {
        if (!seen.insert(timed->channels[i]).second) {
            return r.fail(child(channelsPath, i),
                          "channel " + std::to_string(timed->channels[i]) + " is listed twice");
        }
    }
    const std::string samplesPath = child(path, "samples");
    if (!r.array(value["samples"], samplesPath)) return false;
    // Consumed as it is read: the values go from the rows as the samples take them.
    JsonRows* rows = r.rows(samplesPath);
    if (rows == nullptr) return true;  // an empty array
    const size_t width = timed->channels.size() + 1;
    timed->atUs.reserve(rows->rowCount());
    timed->values.reserve(rows->rowCount() * timed->channels.size());
    timed->present.reserve(rows->rowCount() * timed->channels.size());
    int64_t at = 0;
    for (size_t row = 0; row < rows->rowCount(); ++row) {
        const size_t begin = rows->rowBegin(row);
        const size_t size = rows->ends[row] - begin;
        const std::string rowPath = child(samplesPath, row);
        if (size != width) {
            return r.fail(rowPath, "expected " + std::to_string(width) +
                                       " numbers (the time, then one value per channel), got " +
                                       std::to_string(size));
        }
        const int64_t delta = rows->values.take();
        if (!rows->present[begin] || delta < 0) {
            return r.fail(child(rowPath, 0),
                          "the time must be a number of microseconds, 0 or more");
        }
        if (delta > kInt64Max / 1000 - at) {  // kept well within what host clocks can add
            return r.fail(child(rowPath, 0), "the samples reach too far in time");
        }
        at += delta;
        timed->atUs.push_back(at);
        for (size_t i = begin + 1; i < begin + size; ++i) {
            timed->values.push_back(rows->values.take());
            timed->present.push_back(rows->present[i]);
        }
    }
    if (value.contains("restarts") && !readRestarts(r, value["restarts"], path, timed.get())) {
        return false;
    }
    *out = std::move(timed);
    return true;
}

// [[requested, answered], ...]: recorded SetFrequency answers.
bool readFrequencyAnswers(Reader& r, const json& value, const std::string& path,
                          std::vector<std::pair<double, double>>* out) {
    if (!r.array(value, path)) return false;
    std::vector<std::pair<double, double>> answers;
    for (size_t i = 0; i < value.size(); ++i) {
        const std::string pairPath = child(path, i);
        if (!value[i].is_array() || value[i].size() != 2) {
            return r.fail(pairPath, "expected [requested Hz, answered Hz]");
        }
        double requested = 0.0;
        double answered = 0.0;
        if (!r.number(value[i][0], child(pairPath, 0), &requested) ||
            !r.number(value[i][1], child(pairPath, 1), &answered)) {
            return false;
        }
        answers.emplace_back(requested, answered);
    }
    *out = std::move(answers);
    return true;
}

bool readAttributes(Reader& r, const json& value, const std::string& path,
                    std::map<std::string, std::optional<std::string>>* out) {
    if (!value.is_object()) return r.fail(path, "expected an object");
    std::map<std::string, std::optional<std::string>> attributes;
    for (const auto& item : value.items()) {
        if (item.value().is_null()) continue;  // absent, as if not listed
        if (!item.value().is_string()) {
            return r.fail(child(path, item.key()), "expected a string or null");
        }
        attributes[item.key()] = item.value().get<std::string>();
    }
    *out = std::move(attributes);
    return true;
}

// {"accel_x": 2.0, ...}: finite numbers by channel id, at least `min`.
bool readChannelNumbers(Reader& r, const json& value, const std::string& path, double min,
                        std::map<std::string, double>* out) {
    if (!value.is_object()) return r.fail(path, "expected an object of numbers by channel id");
    for (const auto& item : value.items()) {
        const std::string itemPath = child(path, item.key());
        double number = 0.0;
        if (!r.number(item.value(), itemPath, &number)) return false;
        if (!std::isfinite(number) || number < min) {
            return r.fail(itemPath,
                          min == 0.0 ? "must be a finite number >= 0" : "must be a finite number");
        }
        (*out)[item.key()] = number;
    }
    return true;
}

// A duration of 0 to 10^12 ms, fractions down to the microsecond.
bool milliseconds(Reader& r, const json& value, const std::string& path,
                  std::chrono::microseconds* out) {
    double ms = 0.0;
    if (!r.number(value, path, &ms)) return false;
    if (!(ms >= 0.0 && ms <= 1e12)) return r.fail(path, "must be 0 to 10^12 milliseconds");
    *out = std::chrono::microseconds(std::llround(ms * 1000.0));
    return true;
}

// One key of a JSON object: how its value is read into a T, and whether the key must be there.
template <typename T>
struct Field {
    const char* key;
    bool (*read)(Reader& r, const json& value, const std::string& path, T* out);
    bool required;
};

// An object with no key but those of `fields`: each present key read by its field, in the
// table's order.
template <typename T, size_t N>
bool readFields(Reader& r, const json& value, const std::string& path, const Field<T> (&fields)[N],
                T* out) {
    if (!value.is_object()) return r.fail(path, "expected an object");
    for (const auto& item : value.items()) {
        const bool known = std::any_of(std::begin(fields), std::end(fields),
                                       [&](const Field<T>& f) { return item.key() == f.key; });
        if (!known) return r.fail(path, "unknown key \"" + item.key() + "\"");
    }
    for (const Field<T>& field : fields) {
        if (!value.contains(field.key)) {
            if (field.required)
                return r.fail(path, std::string("missing key \"") + field.key + "\"");
            continue;
        }
        if (!field.read(r, value[field.key], child(path, field.key), out)) return false;
    }
    return true;
}

using F = StreamFaults;
// clang-format off
const Field<StreamFaults> kFaultFields[] = {
    {"jitterUs", [](Reader& r, const json& v, const std::string& p, F* f) {
         int64_t us = 0;
         if (!r.integer(v, p, 0, 1000000000, &us)) return false;
         f->jitter = std::chrono::microseconds(us);
         return true; }, false},
    {"dropEvery", [](Reader& r, const json& v, const std::string& p, F* f) {
         int64_t every = 0;
         if (!r.integer(v, p, 1, kInt32Max, &every)) return false;
         f->dropEvery = static_cast<uint32_t>(every);
         return true; }, false},
    {"dropBurst", [](Reader& r, const json& v, const std::string& p, F* f) {
         return r.object(v, p, {"fromMs", "forMs"}) && r.require(v, p, "fromMs") &&
                r.require(v, p, "forMs") &&
                milliseconds(r, v["fromMs"], child(p, "fromMs"), &f->dropFrom) &&
                milliseconds(r, v["forMs"], child(p, "forMs"), &f->dropFor); }, false},
    {"rateFactor", [](Reader& r, const json& v, const std::string& p, F* f) {
         if (!r.number(v, p, &f->rateFactor)) return false;
         return (f->rateFactor > 0.0 && std::isfinite(f->rateFactor)) ||
                r.fail(p, "must be a positive number"); }, false},
    {"timestampClock", [](Reader& r, const json& v, const std::string& p, F* f) {
         return r.choice(v, p, kClockNames, &f->clock); }, false},
    {"timestampOffsetMs", [](Reader& r, const json& v, const std::string& p, F* f) {
         double ms = 0.0;
         if (!r.number(v, p, &ms)) return false;
         if (!(std::fabs(ms) <= 1e12)) {
             return r.fail(p, "must be a number of milliseconds within +-10^12");
         }
         f->timestampOffset = std::chrono::microseconds(std::llround(ms * 1000.0));
         return true; }, false},
    {"stuck", [](Reader& r, const json& v, const std::string& p, F* f) {
         return readChannelNumbers(r, v, p, -INFINITY, &f->stuck); }, false},
    {"noise", [](Reader& r, const json& v, const std::string& p, F* f) {
         return readChannelNumbers(r, v, p, 0.0, &f->noise); }, false},
};
// clang-format on

bool readFaults(Reader& r, const json& value, const std::string& path, StreamFaults* out) {
    StreamFaults faults;
    if (!readFields(r, value, path, kFaultFields, &faults)) return false;
    *out = std::move(faults);
    return true;
}

bool readChannelIds(Reader& r, const json& value, const std::string& path,
                    std::vector<std::string>* out) {
    if (!r.array(value, path)) return false;
    for (size_t i = 0; i < value.size(); ++i) {
        std::string channel;
        if (!r.string(value[i], child(path, i), &channel)) return false;
        out->push_back(std::move(channel));
    }
    return true;
}

// Sample columns and keys name channels by index: an index the device lacks would be a column
// the host never sends (a timestamp column lost, events stamped on arrival instead).
bool checkSampleChannels(Reader& r, const std::string& path, const VirtualDevice& device) {
    const int64_t channelCount = static_cast<int64_t>(device.channels.size());
    const std::string known =
        channelCount == 0 ? "the device lists no channels"
                          : "the device's channels are 0.." + std::to_string(channelCount - 1);
    if (device.timedSamples != nullptr) {
        const std::vector<int32_t>& columns = device.timedSamples->channels;
        for (size_t i = 0; i < columns.size(); ++i) {
            if (columns[i] < 0 || columns[i] >= channelCount) {
                return r.fail(
                    child(child(child(path, "timedSamples"), "channels"), i),
                    "channel " + std::to_string(columns[i]) + " does not exist; " + known);
            }
        }
    }
    for (size_t i = 0; i < device.samples.size(); ++i) {
        for (const auto& [channel, raw] : device.samples[i]) {
            if (channel < 0 || channel >= channelCount) {
                return r.fail(child(child(child(path, "samples"), i), std::to_string(channel)),
                              "channel " + std::to_string(channel) + " does not exist; " + known);
            }
        }
    }
    return true;
}

using DeviceField = Field<VirtualDevice>;
using D = VirtualDevice;
// clang-format off
const DeviceField kDeviceFields[] = {
    {"id", [](Reader& r, const json& v, const std::string& p, D* d) {
         return r.int32(v, p, &d->id); }, true},
    {"types", [](Reader& r, const json& v, const std::string& p, D* d) {
         return r.int32List(v, p, &d->types); }, true},
    {"channels", [](Reader& r, const json& v, const std::string& p, D* d) {
         return readChannelIds(r, v, p, &d->channels); }, false},
    {"attributes", [](Reader& r, const json& v, const std::string& p, D* d) {
         return readAttributes(r, v, p, &d->attributes); }, false},
    {"samples", [](Reader& r, const json& v, const std::string& p, D* d) {
         return readSamples(r, v, p, &d->samples); }, false},
    {"timedSamples", [](Reader& r, const json& v, const std::string& p, D* d) {
         return readTimedSamples(r, v, p, &d->timedSamples); }, false},
    {"frequencyAnswers", [](Reader& r, const json& v, const std::string& p, D* d) {
         return readFrequencyAnswers(r, v, p, &d->frequencyAnswers); }, false},
    {"maxFrequency", [](Reader& r, const json& v, const std::string& p, D* d) {
         double hz = 0.0;
         if (!r.number(v, p, &hz)) return false;
         if (!(hz > 0.0) || !std::isfinite(hz)) return r.fail(p, "must be a positive number of Hz");
         d->maxFrequency = hz;
         return true; }, false},
    {"failChannels", [](Reader& r, const json& v, const std::string& p, D* d) {
         return r.int32List(v, p, &d->failChannels); }, false},
    {"stall", [](Reader& r, const json& v, const std::string& p, D* d) {
         return r.choice(v, p, kStallNames, &d->stall); }, false},
    {"closeAt", [](Reader& r, const json& v, const std::string& p, D* d) {
         return r.choice(v, p, kCloseAtNames, &d->closeAt); }, false},
    {"replyDelayMs", [](Reader& r, const json& v, const std::string& p, D* d) {
         int64_t delay = 0;
         if (!r.integer(v, p, 0, kInt32Max, &delay)) return false;
         d->replyDelay = std::chrono::milliseconds(delay);
         return true; }, false},
    {"faults", [](Reader& r, const json& v, const std::string& p, D* d) {
         return readFaults(r, v, p, &d->faults); }, false},
};
// clang-format on

bool readDevice(Reader& r, const json& value, const std::string& path, VirtualDevice* out) {
    if (value.is_object() && value.contains("samples") && value.contains("timedSamples")) {
        return r.fail(child(path, "timedSamples"),
                      "a device has samples or timedSamples, not both");
    }
    VirtualDevice device;
    if (!readFields(r, value, path, kDeviceFields, &device) ||
        !checkSampleChannels(r, path, device)) {
        return false;
    }
    *out = std::move(device);
    return true;
}

bool readTimelineEvent(Reader& r, const json& value, const std::string& path,
                       const std::set<int32_t>& deviceIds, TimelineEvent* out) {
    if (!value.is_object()) return r.fail(path, "expected an object");
    if (!r.require(value, path, "atMs") || !r.require(value, path, "action")) return false;
    TimelineEvent event;
    if (!r.choice(value["action"], child(path, "action"), kActionNames, &event.action)) {
        return false;
    }
    bool known = false;
    switch (event.action) {
        case TimelineAction::kObserverError:
            known = r.object(value, path, {"atMs", "action", "device", "error"}) &&
                    r.require(value, path, "device") && r.require(value, path, "error");
            break;
        case TimelineAction::kCloseDevice:
            known = r.object(value, path, {"atMs", "action", "device"}) &&
                    r.require(value, path, "device");
            break;
        case TimelineAction::kCloseService:
            known = r.object(value, path, {"atMs", "action", "reason", "description"});
            break;
        case TimelineAction::kTabletMode:
            known = r.object(value, path, {"atMs", "action", "on"}) && r.require(value, path, "on");
            break;
    }
    if (!known) return false;

    // Whole milliseconds, or fractions of one down to the microsecond, as recordings write.
    const json& atMs = value["atMs"];
    const std::string atPath = child(path, "atMs");
    if (atMs.is_number_float()) {
        const double ms = atMs.get<double>();
        if (!(ms >= 0.0) || ms > static_cast<double>(kInt64Max / 1000)) {
            return r.fail(atPath,
                          atMs.dump() + " is out of range 0.." + std::to_string(kInt64Max / 1000));
        }
        event.at = std::chrono::microseconds(std::llround(ms * 1000.0));
    } else {
        int64_t at = 0;
        if (!r.integer(atMs, atPath, 0, kInt64Max / 1000, &at)) return false;
        event.at = std::chrono::milliseconds(at);
    }
    if (value.contains("device")) {
        const std::string devicePath = child(path, "device");
        if (!r.int32(value["device"], devicePath, &event.device)) return false;
        if (deviceIds.count(event.device) == 0) {
            return r.fail(devicePath, "no device with id " + std::to_string(event.device));
        }
    }
    if (value.contains("error") && !r.int32(value["error"], child(path, "error"), &event.error)) {
        return false;
    }
    if (value.contains("reason")) {
        int64_t reason = 0;
        if (!r.integer(value["reason"], child(path, "reason"), 0, kUint32Max, &reason)) {
            return false;
        }
        event.reason = static_cast<uint32_t>(reason);
    }
    if (value.contains("description") &&
        !r.string(value["description"], child(path, "description"), &event.description)) {
        return false;
    }
    if (value.contains("on") && !r.boolean(value["on"], child(path, "on"), &event.on)) {
        return false;
    }
    *out = std::move(event);
    return true;
}

bool readHost(Reader& r, const json& root, HostConfig* out) {
    if (!r.object(root, "",
                  {"bridgeVersion", "clientTypes", "startBootTimeNs", "devices", "timeline"})) {
        return false;
    }
    HostConfig config;
    if (root.contains("startBootTimeNs")) {
        int64_t ns = 0;
        if (!r.integer(root["startBootTimeNs"], "/startBootTimeNs", 0,
                       std::numeric_limits<int64_t>::max(), &ns)) {
            return false;
        }
        config.startBootTimeNs = ns;
    }
    if (root.contains("bridgeVersion")) {
        int64_t version = 0;
        if (!r.integer(root["bridgeVersion"], "/bridgeVersion", 0, kUint32Max, &version)) {
            return false;
        }
        config.bridgeVersion = static_cast<uint32_t>(version);
    }
    if (root.contains("clientTypes") &&
        !r.int32List(root["clientTypes"], "/clientTypes", &config.clientTypes)) {
        return false;
    }
    std::set<int32_t> ids;
    if (root.contains("devices")) {
        const json& devices = root["devices"];
        if (!r.array(devices, "/devices")) return false;
        for (size_t i = 0; i < devices.size(); ++i) {
            const std::string path = child("/devices", i);
            VirtualDevice device;
            if (!readDevice(r, devices[i], path, &device)) return false;
            if (!ids.insert(device.id).second) {
                return r.fail(child(path, "id"),
                              "duplicate device id " + std::to_string(device.id));
            }
            config.devices.push_back(std::move(device));
        }
    }
    if (root.contains("timeline")) {
        const json& timeline = root["timeline"];
        if (!r.array(timeline, "/timeline")) return false;
        for (size_t i = 0; i < timeline.size(); ++i) {
            TimelineEvent event;
            if (!readTimelineEvent(r, timeline[i], child("/timeline", i), ids, &event)) {
                return false;
            }
            config.timeline.push_back(std::move(event));
        }
    }
    *out = std::move(config);
    return true;
}

// Keys and values quoted in a refusal may hold control characters ("\n" in a key): written as
// \xNN so that the refusal stays one line.
std::string oneLine(const std::string& text) {
    std::string line;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f) {
            line += c;
            continue;
        }
        static const char kHex[] = "0123456789abcdef";
        line += "\\x";
        line += kHex[byte >> 4];
        line += kHex[byte & 0xf];
    }
    return line;
}

bool parseSource(JsonSource& source, HostConfig* out, std::string* error) {
    JsonDocument doc;
    std::string problem;
    Reader reader(doc);
    if (!readJson(source, kTimedRows, &doc, &problem)) {
        *error = oneLine(problem);
        return false;
    }
    if (!readHost(reader, doc.root, out)) {
        *error = oneLine(reader.error());
        return false;
    }
    return true;
}

}  // namespace

bool parseHostDescription(const std::string& text, HostConfig* out, std::string* error) {
    JsonSource source(text, kMaxDescriptionBytes);
    return parseSource(source, out, error);
}

bool loadHostDescription(const std::string& path, HostConfig* out, std::string* error, size_t limit,
                         const std::function<bool()>& stop) {
    const bool standardInput = path == "-";
    auto failed = [&](const std::string& what) {
        *error = (standardInput ? "<stdin>" : path) + ": " + what;
        return false;
    };
    const int fd = standardInput ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return failed(std::string("cannot read: ") + std::strerror(errno));
    struct stat info = {};
    std::string reason;
    bool ok = false;
    if (::fstat(fd, &info) != 0) {
        reason = std::string("cannot read: ") + std::strerror(errno);
    } else if (S_ISDIR(info.st_mode)) {
        reason = "is a directory, not a host description";
    } else if (S_ISREG(info.st_mode) && static_cast<uint64_t>(info.st_size) > limit) {
        // Refused before reading; other files (pipes, devices) are cut off at the limit.
        reason = tooLargeError(limit);
    } else {
        JsonSource source(fd, limit, stop);
        ok = parseSource(source, out, &reason);
    }
    ::close(fd);
    return ok || failed(reason);
}

}  // namespace kelvane::host::description
