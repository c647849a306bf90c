// Notices a continuous sensor that stops sending mid-stream (a board's buffer that runs dry, a
// device gone): one line when it has been silent for kStallPeriods of its period, and at least
// kMinimumStall, and one when its events come back. A sensor that never sent is not its business
// (the stream's "no events" rule), nor are on-change sensors, which are silent by design.
//
// Main thread only; time is passed in, so that it can be tested without waiting.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kelvane::tools {

class StallWatch {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr int kStallPeriods = 10;
    static constexpr std::chrono::seconds kMinimumStall{2};

    // Times in lines count from `origin` ("at 4.5 s").
    explicit StallWatch(Clock::time_point origin) : mOrigin(origin) {}

    // Watches a continuous sensor; `label` names it in lines ("[1] Accelerometer (lid)").
    void watch(int32_t handle, std::string label);
    // An event of `handle` arrived at `now`. Returns the line to print if it ends a stall.
    std::string arrived(int32_t handle, Clock::time_point now);
    // The lines of the stalls that began by `now`, each once.
    std::vector<std::string> check(Clock::time_point now);
    // At the end of the run: one line per sensor that was still silent.
    std::vector<std::string> stalledAtEnd(Clock::time_point now) const;

  private:
    struct Sensor {
        std::string label;
        uint64_t arrivals = 0;
        Clock::time_point first;
        Clock::time_point last;
        bool stalled = false;
    };

    // How long `sensor` may be silent: its mean interval so far, times kStallPeriods.
    static Clock::duration allowance(const Sensor& sensor);
    std::string at(Clock::time_point when) const;  // "4.5 s"

    const Clock::time_point mOrigin;
    std::map<int32_t, Sensor> mSensors;
};

}  // namespace kelvane::tools
