// The C++ bindings are written by hand beside their .mojom files: these tests read the .mojom
// text and hold the header's enumerations and constants to it. And the table of sensor kinds
// must stay consistent with itself, since every part of the system trusts it.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "hardware/sensors/mojom/sensor.mojom.h"
#include "hardware/sensors/mojom/sensor_kinds.h"
#include "hardware/sensors/mojom/vel.mojom.h"

namespace kelvane::sensors {
namespace {

namespace cm = chromeos::sensors::mojom;

std::string readMojom(const std::string& name) {
    std::ifstream in(std::string(MOJOM_DIR) + "/" + name);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The NAME = value lines of `enum <name> { ... };` in mojom text.
std::map<std::string, int64_t> mojomEnum(const std::string& text, const std::string& name) {
    std::smatch body;
    const std::regex block("enum " + name + R"(\s*\{([^}]*)\})");
    std::map<std::string, int64_t> values;
    if (!std::regex_search(text, body, block)) return values;
    const std::string entries = body[1];
    const std::regex entry(R"((\w+)\s*=\s*(\d+))");
    for (auto it = std::sregex_iterator(entries.begin(), entries.end(), entry);
         it != std::sregex_iterator(); ++it) {
        values[(*it)[1]] = std::stoll((*it)[2]);
    }
    return values;
}

#define ENTRY(Enum, name) \
    { #name, static_cast < int64_t>(Enum::name) }

TEST(MojomText, DeviceTypeMatchesItsHeader) {
    const std::map<std::string, int64_t> header = {
        ENTRY(cm::DeviceType, NONE),
        ENTRY(cm::DeviceType, ACCEL),
        ENTRY(cm::DeviceType, ANGLVEL),
        ENTRY(cm::DeviceType, LIGHT),
        ENTRY(cm::DeviceType, COUNT),
        ENTRY(cm::DeviceType, MAGN),
        ENTRY(cm::DeviceType, ANGL),
        ENTRY(cm::DeviceType, BARO),
        ENTRY(cm::DeviceType, ACCEL_UNCALIBRATED),
        ENTRY(cm::DeviceType, ANGLVEL_UNCALIBRATED),
        ENTRY(cm::DeviceType, MAGN_UNCALIBRATED),
        ENTRY(cm::DeviceType, GRAVITY),
    };
    const auto mojom = mojomEnum(readMojom("sensor.mojom"), "DeviceType");
    EXPECT_EQ(mojom, header);
    int64_t largest = 0;
    for (const auto& [name, value] : mojom) largest = std::max(largest, value);
    EXPECT_EQ(static_cast<int64_t>(cm::DeviceType::kMaxValue), largest);
}

TEST(MojomText, ObserverErrorTypeMatchesItsHeader) {
    const std::map<std::string, int64_t> header = {
        ENTRY(cm::ObserverErrorType, ALREADY_STARTED),
        ENTRY(cm::ObserverErrorType, SET_FREQUENCY_IO_FAILED),
        ENTRY(cm::ObserverErrorType, FREQUENCY_INVALID),
        ENTRY(cm::ObserverErrorType, NO_ENABLED_CHANNELS),
        ENTRY(cm::ObserverErrorType, GET_FD_FAILED),
        ENTRY(cm::ObserverErrorType, READ_FAILED),
        ENTRY(cm::ObserverErrorType, READ_TIMEOUT),
    };
    EXPECT_EQ(mojomEnum(readMojom("sensor.mojom"), "ObserverErrorType"), header);
    EXPECT_EQ(static_cast<int64_t>(cm::ObserverErrorType::kMaxValue), int64_t{6});
}

TEST(MojomText, BridgeVersionMatchesItsHeader) {
    const std::string text = readMojom("vel.mojom");
    std::smatch version;
    ASSERT_TRUE(std::regex_search(text, version, std::regex(R"(kBridgeVersion = (\d+);)")));
    EXPECT_EQ(std::stoul(version[1]), vel::mojom::kBridgeVersion);
    // The host's method that hands over the instance needs exactly that version.
    std::smatch minVersion;
    ASSERT_TRUE(std::regex_search(text, minVersion,
                                  std::regex(R"(\[MinVersion=(\d+)\] OnIioSensorInstanceReady)")));
    EXPECT_EQ(std::stoul(minVersion[1]), vel::mojom::kBridgeVersion);
}

TEST(SensorKinds, AreOrderedAndDistinct) {
    std::set<int32_t> androidTypes;
    std::set<std::string> names;
    int32_t previous = -1;
    for (const SensorKind& kind : kSensorKinds) {
        const int32_t type = static_cast<int32_t>(kind.deviceType);
        EXPECT_GT(type, previous) << kind.shortName;
        previous = type;
        EXPECT_TRUE(cm::IsKnownEnumValue(kind.deviceType));
        EXPECT_TRUE(androidTypes.insert(kind.androidType).second) << kind.shortName;
        EXPECT_EQ(kindOf(kind.deviceType), &kind);
        EXPECT_EQ(kindOfAndroidType(kind.androidType), &kind);
        // A selector names one kind only.
        EXPECT_TRUE(names.insert(kind.shortName).second) << kind.shortName;
        for (const char* const* alias = kind.aliases; *alias != nullptr; ++alias) {
            EXPECT_TRUE(names.insert(*alias).second) << *alias;
        }
        EXPECT_TRUE(kind.axisCount == 1 || kind.axisCount == 3) << kind.shortName;
        EXPECT_GT(kind.maxRange, 0.0f);
        EXPECT_GT(kind.resolution, 0.0f);
        EXPECT_GT(kind.defaultHz, 0.0);
    }
    EXPECT_EQ(kindOf(cm::DeviceType::NONE), nullptr);
    EXPECT_EQ(kindOf(cm::DeviceType::BARO), nullptr);
    EXPECT_EQ(kindOf(int32_t{99}), nullptr);
}

TEST(SensorKinds, ChannelIdsNameOneKindAndAxis) {
    for (const SensorKind& kind : kSensorKinds) {
        for (size_t axis = 0; axis < kind.axisCount; ++axis) {
            size_t found = 99;
            EXPECT_EQ(kindOfChannel(channelId(kind, axis), &found), &kind);
            EXPECT_EQ(found, axis);
        }
    }
    EXPECT_EQ(channelId(*kindOf(cm::DeviceType::MAGN), 2), "magn_z");
    EXPECT_EQ(channelId(*kindOf(cm::DeviceType::LIGHT), 0), "illuminance");
    EXPECT_EQ(kindOfChannel("timestamp"), nullptr);
    EXPECT_EQ(kindOfChannel("accel"), nullptr);
}

TEST(SensorKinds, TheFirstServedKindOfADeviceIsPublished) {
    EXPECT_EQ(firstServedKind(std::vector<int32_t>{7, 2, 1}), kindOf(cm::DeviceType::ANGLVEL));
    EXPECT_EQ(firstServedKind(std::vector<int32_t>{0, 7, 42}), nullptr);
}

}  // namespace
}  // namespace kelvane::sensors
