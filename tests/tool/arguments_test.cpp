// The tool's reading of its command line and its human output, without a library or a host.
#include "Arguments.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Output.h"
#include "SensorSelection.h"

namespace kelvane::tools {
namespace {

using android::hardware::sensors::V2_1::SensorType;

TEST(ArgumentsTest, RatesAndPeriodsNeverTurnIntoAnotherRequest) {
    int64_t period = -1;
    EXPECT_EQ(parseRate("100", &period), "");
    EXPECT_EQ(period, 10'000'000);
    EXPECT_EQ(parseRate("0.001", &period), "");
    EXPECT_EQ(period, 1'000'000'000'000);
    EXPECT_EQ(parseRate("1e9", &period), "");
    EXPECT_EQ(period, 1);
    // Slow rates used to overflow into the fastest period; nan and junk used to pass as numbers.
    for (const char* bad :
         {"1e-10", "1e-300", "1e-400", "0", "-5", "nan", "inf", "x", "", "0x10", "2e9", "1e400"}) {
        period = -1;
        EXPECT_NE(parseRate(bad, &period), "") << bad;
        EXPECT_EQ(period, -1) << bad;
    }
    EXPECT_EQ(parseRate("1e-10", &period),
              "1e-10 Hz is slower than the slowest accepted, 0.001 Hz (a period of 1000 s)");

    // A nan speed passed a range check and made the host's delays undefined.
    double speed = -1;
    EXPECT_EQ(parseSpeed("0", &speed), "");
    EXPECT_EQ(speed, 0.0);
    EXPECT_EQ(parseSpeed("2.5", &speed), "");
    EXPECT_EQ(speed, 2.5);
    for (const char* bad : {"nan", "inf", "-1", "1e7", "", "x"}) {
        EXPECT_EQ(
            parseSpeed(bad, &speed),
            std::string("expected a factor from 0 to 1000000 (0: no waiting), got \"") + bad + "\"")
            << bad;
    }
    EXPECT_EQ(speed, 2.5);

    EXPECT_EQ(parsePeriodNs("1", &period), "");
    EXPECT_EQ(period, 1);
    EXPECT_EQ(parsePeriodNs("1000000000000", &period), "");
    EXPECT_EQ(period, kMaxPeriodNs);
    for (const char* bad : {"0", "-1", "1000000000001", "99999999999999999999", "1e6", "10ms"}) {
        period = -1;
        EXPECT_NE(parsePeriodNs(bad, &period), "") << bad;
        EXPECT_EQ(period, -1) << bad;
    }
    EXPECT_EQ(parsePeriodNs("99999999999999999999", &period),
              "99999999999999999999 ns is longer than the longest accepted, 1000000000000 ns "
              "(1000 s)");
}

TEST(ArgumentsTest, DurationsCountsAndHandles) {
    std::optional<double> seconds = 1.0;
    EXPECT_EQ(parseDuration("2.5", &seconds), "");
    EXPECT_EQ(seconds, 2.5);
    // 0 and anything past a century mean "until Ctrl-C"; huge values used to end the run at once.
    for (const char* forever : {"0", "1e10", "1e300"}) {
        seconds = 1.0;
        EXPECT_EQ(parseDuration(forever, &seconds), "") << forever;
        EXPECT_FALSE(seconds) << forever;
    }
    for (const char* bad : {"nan", "-1", "inf", "1e400", "three"}) {
        EXPECT_NE(parseDuration(bad, &seconds), "") << bad;
    }

    uint64_t count = 7;
    EXPECT_EQ(parseCount("18446744073709551615", &count), "");
    EXPECT_EQ(count, UINT64_MAX);
    EXPECT_EQ(parseCount("0", &count), "expected a whole number of events, 1 or more, got \"0\"");
    for (const char* bad : {"-1", "18446744073709551616", "1.5", ""}) {
        EXPECT_NE(parseCount(bad, &count), "") << bad;
    }

    int32_t handle = 0;
    std::string error;
    EXPECT_TRUE(parseHandle("0", &handle, &error));
    EXPECT_TRUE(parseHandle("-2", &handle, &error));
    EXPECT_EQ(handle, -2);
    EXPECT_FALSE(parseHandle("accelerometer", &handle, &error));
    EXPECT_EQ(error, "");  // a name, not a bad handle
    // Leading zeros used to be read as octal: 010 was sensor 8.
    EXPECT_FALSE(parseHandle("010", &handle, &error));
    EXPECT_EQ(error, "handles are written without leading zeros: \"010\" (did you mean 10?)");
    error.clear();
    EXPECT_FALSE(parseHandle("2147483648", &handle, &error));
    EXPECT_NE(error, "");
}

SensorInfo sensor(int32_t handle, SensorType type, const std::string& typeAsString,
                  const std::string& name) {
    SensorInfo s{};
    s.sensorHandle = handle;
    s.type = type;
    s.typeAsString = typeAsString;
    s.name = name;
    return s;
}

TEST(SensorSelectionTest, TypesCommonNamesAndChoices) {
    const std::vector<SensorInfo> all = {
        sensor(1, SensorType::ACCELEROMETER, "android.sensor.accelerometer", "Accelerometer (lid)"),
        sensor(3, SensorType::MAGNETIC_FIELD, "android.sensor.magnetic_field",
               "Magnetometer (lid)"),
        sensor(4, SensorType::LIGHT, "android.sensor.light", "Light\x1b[2J"),
        sensor(10, SensorType::ACCELEROMETER, "android.sensor.accelerometer", "Accelerometer")};
    auto handles = [&all](const std::vector<std::string>& selectors) {
        std::vector<SensorInfo> selected;
        const std::string error = selectSensors(all, selectors, &selected);
        std::vector<int32_t> out;
        for (const SensorInfo& s : selected) out.push_back(s.sensorHandle);
        return error.empty() ? out : std::vector<int32_t>{-1};
    };
    EXPECT_EQ(handles({}), (std::vector<int32_t>{1, 3, 4, 10}));
    EXPECT_EQ(handles({"ANDROID.SENSOR.ACCELEROMETER"}), (std::vector<int32_t>{1, 10}));
    EXPECT_EQ(handles({"magnetometer"}), (std::vector<int32_t>{3}));
    EXPECT_EQ(handles({"magnetic_field", "3", "mag"}), (std::vector<int32_t>{3}));
    EXPECT_EQ(handles({"als", "accelerometer (lid)"}), (std::vector<int32_t>{1, 4}));
    EXPECT_EQ(handles({"10"}), (std::vector<int32_t>{10}));
    EXPECT_EQ(handles({"010"}), (std::vector<int32_t>{-1}));

    std::vector<SensorInfo> selected;
    EXPECT_EQ(selectSensors(all, {"barometer"}, &selected),
              "no sensor matches --sensor \"barometer\"; choose a handle (1, 3, 4, 10), a type "
              "(accelerometer, magnetic_field, light), a name (\"Accelerometer (lid)\", "
              "\"Magnetometer (lid)\", \"Light\\x1b[2J\", \"Accelerometer\") or all");
    EXPECT_EQ(selectSensors({}, {"1"}, &selected),
              "no sensor matches --sensor \"1\"; no sensor was published");
}

TEST(OutputTest, HostStringsCannotReachTheTerminal) {
    EXPECT_EQ(printable("Accelerometer (lid)"), "Accelerometer (lid)");
    EXPECT_EQ(printable("a\nb\tc\rd\\e"), "a\\nb\\tc\\rd\\\\e");
    EXPECT_EQ(printable(std::string("\x1b[31m\x7f\0", 7)), "\\x1b[31m\\x7f\\x00");
    EXPECT_EQ(printable("\xc2\x9b"
                        "2J \xc2\xb5T"),
              "\\u009b2J \xc2\xb5T");  // CSI goes, µ stays

    SensorInfo s = sensor(7, SensorType::LIGHT, "android.sensor.light", "Light (\nbase\x1b[2J)");
    s.maxRange = 100000;
    const std::string table = sensorTable({s});
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 2) << table;
    EXPECT_NE(table.find("Light (\\nbase\\x1b[2J)"), std::string::npos) << table;
    EXPECT_NE(table.find("100000 lux"), std::string::npos) << table;
    EXPECT_NE(table.find(" mA"), std::string::npos) << table;
    EXPECT_NE(table.find(" µs"), std::string::npos) << table;
}

TEST(OutputTest, EventsCarryUnits) {
    Event event{};
    event.timestamp = 123;
    event.sensorHandle = 2;
    event.sensorType = SensorType::GYROSCOPE;
    event.u.vec3.x = 0.5f;
    EXPECT_EQ(eventText(event, "Gyro\n"), "123 ns [2] Gyro\\n: x=0.5 y=0 z=0 rad/s (status 0)");
    event.sensorType = SensorType::MAGNETIC_FIELD;
    EXPECT_NE(eventText(event, "M").find(" µT (status"), std::string::npos);
    event.sensorType = SensorType::LIGHT;
    event.u.scalar = 320;
    EXPECT_EQ(eventText(event, "L"), "123 ns [2] L: 320 lux");
    event.sensorType = SensorType::GRAVITY;
    EXPECT_NE(eventText(event, "G").find(" m/s² (status"), std::string::npos);
}

TEST(CommandLineTest, SuggestsOnlyLikelyTypos) {
    const std::vector<std::string> commands = {"list", "stream", "flush", "dump", "help"};
    EXPECT_EQ(closestWord("lst", commands), "list");
    EXPECT_EQ(closestWord("strem", commands), "stream");
    EXPECT_EQ(closestWord("dmp", commands), "dump");
    EXPECT_EQ(closestWord("record", commands), "");
    EXPECT_EQ(closestWord("--sensors", {"--sensor", "--rate", "--count"}), "--sensor");
    EXPECT_EQ(closestWord("--period", {"--period-ns", "--rate"}), "--period-ns");
    EXPECT_EQ(closestWord("--x", {"--host", "--log"}), "");
}

}  // namespace
}  // namespace kelvane::tools
