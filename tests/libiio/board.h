// A fake board for the libiio host: the devices of board.umockdev in a umockdev testbed (the test
// runs under umockdev-wrapper), with scripted scans encoded here from readable values, and what
// the library must make of them.
#pragma once

#include <umockdev.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kelvane::testing {

struct ExpectedEvent {
    int64_t timestamp;
    float values[3];
};

class Board {
  public:
    // A device whose buffer runs dry for a while: its first `scans` scans come at once, the
    // others `ms` later.
    struct Pause {
        int device;
        size_t scans;
        int ms;
    };

    // The testbed with every device, scans loaded.
    explicit Board(std::optional<Pause> pause = std::nullopt);
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    // The trigger that samples the gravity device, which has no sampling_frequency of its own.
    static constexpr int kGravityTrigger = 5;

    // Sysfs attribute of device N (or kGravityTrigger) as a file holds it (newline included).
    std::string attribute(int device, const std::string& name) const;
    // Takes device N away: its sysfs directory and node go.
    void remove(int device);

    // Events of the buffered devices by sensor handle (handles follow device ids: 0 -> 1, ...).
    static std::map<int32_t, std::vector<ExpectedEvent>> expectedEvents();
    static constexpr float kLux = 345.0f;
    static constexpr int32_t kLightHandle = 3;

  private:
    std::string devicePath(int device) const;
    // The bytes of `reads` become readable one after the other, each after its delay in ms.
    void loadScript(int device, const std::vector<std::pair<int, std::vector<uint8_t>>>& reads);

    UMockdevTestbed* mTestbed;
    std::string mScriptDir;
};

}  // namespace kelvane::testing
