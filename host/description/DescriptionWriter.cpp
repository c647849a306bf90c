#include "host/description/DescriptionWriter.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>
#include <nlohmann/json.hpp>
#include <string_view>

#include "host/description/DescriptionNames.h"

namespace kelvane::host::description {

namespace {

// Keys in the order the format documents them, not sorted.
using json = nlohmann::ordered_json;

// Written pieces go here; a piece that could not be written stops nothing but is remembered.
using Emit = std::function<void(std::string_view)>;

std::string dump(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// An object's text without its closing brace, for keys streamed after it.
std::string open(const json& object) {
    std::string text = dump(object);
    text.pop_back();
    return text;
}

// Everything of a device but its timed samples.
json faultsJson(const StreamFaults& f) {
    json out = json::object();
    if (f.jitter.count() != 0) out["jitterUs"] = f.jitter.count();
    if (f.dropEvery != 0) out["dropEvery"] = f.dropEvery;
    if (f.dropFor.count() != 0 || f.dropFrom.count() != 0) {
        out["dropBurst"] = {{"fromMs", static_cast<double>(f.dropFrom.count()) / 1000.0},
                            {"forMs", static_cast<double>(f.dropFor.count()) / 1000.0}};
    }
    if (f.rateFactor != 1.0) out["rateFactor"] = f.rateFactor;
    if (f.clock != TimestampClock::kBoottime)
        out["timestampClock"] = spellingOf(kClockNames, f.clock);
    if (f.timestampOffset.count() != 0) {
        out["timestampOffsetMs"] = static_cast<double>(f.timestampOffset.count()) / 1000.0;
    }
    if (!f.stuck.empty()) out["stuck"] = f.stuck;
    if (!f.noise.empty()) out["noise"] = f.noise;
    return out;
}

json deviceObject(const VirtualDevice& d) {
    json out = {{"id", d.id}, {"types", d.types}};
    if (!d.channels.empty()) out["channels"] = d.channels;
    if (!d.attributes.empty()) {
        json attributes = json::object();
        for (const auto& [name, value] : d.attributes) {
            attributes[name] = value ? json(*value) : json(nullptr);
        }
        out["attributes"] = std::move(attributes);
    }
    if (!d.samples.empty()) {
        json samples = json::array();
        for (const auto& sample : d.samples) {
            json row = json::object();
            for (const auto& [channel, raw] : sample) row[std::to_string(channel)] = raw;
            samples.push_back(std::move(row));
        }
        out["samples"] = std::move(samples);
    }
    if (d.maxFrequency) out["maxFrequency"] = *d.maxFrequency;
    json answers = json::array();
    for (const auto& [requested, answered] : d.frequencyAnswers) {
        if (std::isfinite(requested) && std::isfinite(answered)) {
            answers.push_back(json::array({requested, answered}));
        }
    }
    if (!answers.empty()) out["frequencyAnswers"] = std::move(answers);
    if (!d.failChannels.empty()) out["failChannels"] = d.failChannels;
    if (const char* stall = spellingOf(kStallNames, d.stall)) out["stall"] = stall;
    if (const char* closeAt = spellingOf(kCloseAtNames, d.closeAt)) out["closeAt"] = closeAt;
    if (d.replyDelay.count() != 0) out["replyDelayMs"] = d.replyDelay.count();
    if (d.faults.any()) out["faults"] = faultsJson(d.faults);
    return out;
}

// "timedSamples": {"channels": [...], "restarts": [...], "samples": [
//      [time since the previous sample in us, one value per channel or null], ...]}
void emitTimedSamples(const TimedSamples& t, const Emit& emit) {
    json head = {{"channels", t.channels}};
    if (!t.restarts.empty()) head["restarts"] = t.restarts;
    emit(",\n     \"timedSamples\": " + open(head) + ",\"samples\":[\n");
    const size_t width = t.channels.size();
    json row = json::array();
    int64_t previous = 0;
    for (size_t i = 0; i < t.size(); ++i) {
        row.clear();
        row.push_back(t.atUs[i] - previous);
        previous = t.atUs[i];
        for (size_t c = i * width; c < (i + 1) * width; ++c) {
            row.push_back(t.present[c] ? json(t.values[c]) : json(nullptr));
        }
        emit("      " + dump(row) + (i + 1 < t.size() ? ",\n" : "\n"));
    }
    emit("     ]}");
}

json timelineObject(const TimelineEvent& e) {
    json out = json::object();
    // Whole milliseconds as an integer; a fraction down to the microsecond otherwise.
    const int64_t us = e.at.count();
    if (us % 1000 == 0) {
        out["atMs"] = us / 1000;
    } else {
        out["atMs"] = static_cast<double>(us) / 1000.0;
    }
    out["action"] = spellingOf(kActionNames, e.action);
    switch (e.action) {
        case TimelineAction::kObserverError:
            out["device"] = e.device;
            out["error"] = e.error;
            break;
        case TimelineAction::kCloseDevice:
            out["device"] = e.device;
            break;
        case TimelineAction::kCloseService:
            out["reason"] = e.reason;
            out["description"] = e.description;
            break;
        case TimelineAction::kTabletMode:
            out["on"] = e.on;
            break;
    }
    return out;
}

void emitDescription(const HostConfig& config, const Emit& emit) {
    emit("{\n  \"bridgeVersion\": " + dump(json(config.bridgeVersion)) + ",\n");
    if (config.clientTypes != HostConfig().clientTypes) {
        emit("  \"clientTypes\": " + dump(json(config.clientTypes)) + ",\n");
    }
    if (config.startBootTimeNs) {
        emit("  \"startBootTimeNs\": " + dump(json(*config.startBootTimeNs)) + ",\n");
    }
    emit("  \"devices\": [");
    for (size_t i = 0; i < config.devices.size(); ++i) {
        const VirtualDevice& d = config.devices[i];
        emit(std::string(i == 0 ? "\n    " : ",\n    ") + open(deviceObject(d)));
        if (d.timedSamples) emitTimedSamples(*d.timedSamples, emit);
        emit("}");
    }
    emit(config.devices.empty() ? "],\n  \"timeline\": [" : "\n  ],\n  \"timeline\": [");
    for (size_t i = 0; i < config.timeline.size(); ++i) {
        emit(std::string(i == 0 ? "\n    " : ",\n    ") + dump(timelineObject(config.timeline[i])));
    }
    emit(config.timeline.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

}  // namespace

std::string hostDescriptionText(const HostConfig& config) {
    std::string text;
    emitDescription(config, [&text](std::string_view piece) { text += piece; });
    return text;
}

bool writeHostDescription(const HostConfig& config, std::FILE* file) {
    constexpr size_t kChunk = size_t{1} << 20;
    std::string buffer;
    bool ok = true;
    int error = 0;
    auto flush = [&] {
        if (ok && !buffer.empty() &&
            std::fwrite(buffer.data(), 1, buffer.size(), file) != buffer.size()) {
            ok = false;
            error = errno;
        }
        buffer.clear();
    };
    emitDescription(config, [&](std::string_view piece) {
        buffer += piece;
        if (buffer.size() >= kChunk) flush();
    });
    flush();
    if (ok && std::fflush(file) != 0) {
        ok = false;
        error = errno;
    }
    errno = error;
    return ok;
}

bool saveHostDescription(const HostConfig& config, const std::string& path, std::string* error) {
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) {
        *error = path + ": cannot write: " + std::strerror(errno);
        return false;
    }
    const bool written = writeHostDescription(config, file);
    const int writeErrno = errno;
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed) {
        *error = path + ": cannot write: " + std::strerror(written ? errno : writeErrno);
        return false;
    }
    return true;
}

}  // namespace kelvane::host::description
