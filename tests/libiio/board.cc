#include "tests/libiio/board.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace kelvane::testing {

namespace {

const char* const kSysPaths[] = {
    "/sys/devices/platform/iio-accel/iio:device0",   "/sys/devices/platform/iio-gyro/iio:device1",
    "/sys/devices/platform/iio-light/iio:device2",   "/sys/devices/platform/iio-magn/iio:device3",
    "/sys/devices/platform/iio-gravity/iio:device4", "/sys/devices/platform/iio-trigger/trigger0"};

// Raw axis values and timestamps of the scripted scans, per device. Extremes of each element's
// width are there to catch sign, shift and mask mistakes.
struct Scan {
    int64_t x, y, z, timestamp;
};
const std::map<int, std::vector<Scan>> kScans = {
    // le:s16/16>>0, x@0 y@2 z@4 timestamp@8, 16 bytes.
    {0, {{1, -1, 981, 1000}, {32767, -32768, 13, 2000}, {-2, 10, 2573, 3000}, {0, 0, 0, 4000}}},
    // be:s12/16>>4, same layout.
    {1, {{2047, -2048, 1, 5000}, {-1, 100, -100, 6000}, {13, 10, 3, 7000}, {0, -7, 7, 8000}}},
    // le:s20/32>>12, x@0 y@4 z@8 pad timestamp@16, 24 bytes.
    {3, {{524287, -524288, 1, 9000}, {-1, 2, 3, 9100}, {1000, -1000, 77, 9200}, {5, 6, 7, 9300}}},
    // le:s6/8>>2 at indices 0, 2, 5 and the timestamp at 7: x@0 y@1 z@2 timestamp@8, 16 bytes.
    {4, {{31, -32, 1, 10000}, {-1, 0, 5, 10100}, {10, -10, 20, 10200}, {0, 1, -1, 10300}}},
};

const std::map<int, double> kScales = {
    {0, 0.009582},
    {1, 0.001065},         // the X axis's; Y and Z have others
    {3, 0.00125 * 100.0},  // Gauss to microtesla
    {4, 0.15},
};

void put(std::vector<uint8_t>& out, size_t at, uint64_t bits, int bytes, bool bigEndian) {
    for (int i = 0; i < bytes; ++i) {
        const int shift = 8 * (bigEndian ? bytes - 1 - i : i);
        out[at + i] = static_cast<uint8_t>(bits >> shift);
    }
}

// Element encoders: the value in its bits, shifted, with junk in the bits below the shift.
std::vector<uint8_t> encode(int device, const Scan& s) {
    std::vector<uint8_t> scan(device == 3 ? 24 : 16, 0);
    const int64_t axes[] = {s.x, s.y, s.z};
    for (int i = 0; i < 3; ++i) {
        const auto v = static_cast<uint64_t>(axes[i]);
        switch (device) {
            case 0:
                put(scan, 2 * i, v & 0xffff, 2, false);
                break;
            case 1:
                put(scan, 2 * i, ((v & 0xfff) << 4) | 0xa, 2, true);
                break;
            case 3:
                put(scan, 4 * i, ((v & 0xfffff) << 12) | 0xabc, 4, false);
                break;
            case 4:
                put(scan, i, ((v & 0x3f) << 2) | 0x3, 1, false);
                break;
        }
    }
    put(scan, device == 3 ? 16 : 8, static_cast<uint64_t>(s.timestamp), 8, false);
    return scan;
}

// umockdev script escaping: bytes below 32 as '^' + (byte + 64), '^' as "^`".
std::string escape(const std::vector<uint8_t>& bytes) {
    std::string out;
    for (uint8_t b : bytes) {
        if (b < 32) {
            out += '^';
            out += static_cast<char>(b + 64);
        } else if (b == '^') {
            out += "^`";
        } else {
            out += static_cast<char>(b);
        }
    }
    return out;
}

}  // namespace

Board::Board(std::optional<Pause> pause) : mTestbed(umockdev_testbed_new()) {
    std::ifstream file(KELVANE_BOARD_FIXTURE);
    std::stringstream text;
    text << file.rdbuf();
    GError* error = nullptr;
    EXPECT_TRUE(umockdev_testbed_add_from_string(mTestbed, text.str().c_str(), &error))
        << (error ? error->message : "");
    char dirTemplate[] = "/tmp/libiio-board-XXXXXX";
    mScriptDir = mkdtemp(dirTemplate);
    for (const auto& [device, scans] : kScans) {
        std::vector<std::pair<int, std::vector<uint8_t>>> reads(1);
        for (size_t i = 0; i < scans.size(); ++i) {
            if (pause && pause->device == device && i == pause->scans)
                reads.push_back({pause->ms, {}});
            const std::vector<uint8_t> scan = encode(device, scans[i]);
            reads.back().second.insert(reads.back().second.end(), scan.begin(), scan.end());
        }
        loadScript(device, reads);
    }
}

Board::~Board() {
    g_object_unref(mTestbed);
    std::system(("rm -rf '" + mScriptDir + "'").c_str());
}

void Board::loadScript(int device, const std::vector<std::pair<int, std::vector<uint8_t>>>& reads) {
    const std::string path = mScriptDir + "/device" + std::to_string(device) + ".script";
    std::ofstream script(path, std::ios::binary);
    for (const auto& [delayMs, bytes] : reads) {
        script << "r " << delayMs << " " << escape(bytes) << "\n";
    }
    script.close();
    const std::string node = "/dev/iio:device" + std::to_string(device);
    GError* error = nullptr;
    EXPECT_TRUE(umockdev_testbed_load_script(mTestbed, node.c_str(), path.c_str(), &error))
        << (error ? error->message : "");
}

std::string Board::devicePath(int device) const { return kSysPaths[device]; }

std::string Board::attribute(int device, const std::string& name) const {
    gchar* root = umockdev_testbed_get_root_dir(mTestbed);
    std::ifstream file(std::string(root) + devicePath(device) + "/" + name);
    g_free(root);
    std::stringstream text;
    text << file.rdbuf();
    std::string value = text.str();
    // libiio writes the string's terminating NUL too; sysfs would drop it.
    while (!value.empty() && value.back() == '\0') value.pop_back();
    return value;
}

void Board::remove(int device) {
    umockdev_testbed_remove_device(mTestbed, devicePath(device).c_str());
}

std::map<int32_t, std::vector<ExpectedEvent>> Board::expectedEvents() {
    std::map<int32_t, std::vector<ExpectedEvent>> events;
    for (const auto& [device, scans] : kScans) {
        const double scale = kScales.at(device);
        // The library's conversion: raw to float, widened, scaled, narrowed.
        auto value = [scale](int64_t raw) {
            return static_cast<float>(static_cast<double>(static_cast<float>(raw)) * scale);
        };
        for (const Scan& s : scans) {
            events[device + 1].push_back({s.timestamp, {value(s.x), value(s.y), value(s.z)}});
        }
    }
    return events;
}

}  // namespace kelvane::testing
