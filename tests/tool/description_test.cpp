// The host description parser: what a description becomes, and the one-line errors it gives.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "host/description/BuiltInHost.h"
#include "host/description/DescriptionReader.h"

namespace kelvane::host::description {
namespace {

HostConfig parseOk(const std::string& text) {
    HostConfig config;
    std::string error;
    EXPECT_TRUE(parseHostDescription(text, &config, &error)) << error;
    return config;
}

std::string parseError(const std::string& text) {
    HostConfig config;
    config.bridgeVersion = 7;  // must survive a failed parse
    std::string error;
    EXPECT_FALSE(parseHostDescription(text, &config, &error)) << text;
    EXPECT_EQ(config.bridgeVersion, 7u) << text;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    return error;
}

TEST(HostDescriptionTest, FullDescription) {
    HostConfig config = parseOk(R"({
      "bridgeVersion": 53,
      "devices": [
        { "id": 3, "types": [2, 1],
          "channels": ["anglvel_x", "anglvel_y", "anglvel_z", "timestamp"],
          "attributes": { "name": "bmi160", "scale": "0.0010652", "location": null },
          "samples": [ { "0": 100, "1": -5, "2": 7, "3": 1000000 }, { "3": -9223372036854775808 } ],
          "maxFrequency": 400.0, "failChannels": [1], "stall": "attributes",
          "closeAt": "afterAttributes", "replyDelayMs": 250 },
        { "id": -4, "types": [] }
      ],
      "timeline": [ { "atMs": 500, "device": 3, "action": "observerError", "error": 5 },
                    { "atMs": 800, "device": -4, "action": "closeDevice" },
                    { "atMs": 900, "action": "closeService", "reason": 4294967295,
                      "description": "bye" },
                    { "atMs": 950, "action": "tabletMode", "on": true },
                    { "atMs": 0, "action": "closeService" } ]
    })");
    EXPECT_EQ(config.bridgeVersion, 53u);
    ASSERT_EQ(config.devices.size(), 2u);
    const VirtualDevice& d = config.devices[0];
    EXPECT_EQ(d.id, 3);
    EXPECT_EQ(d.types, (std::vector<int32_t>{2, 1}));
    EXPECT_EQ(d.channels.size(), 4u);
    EXPECT_EQ(d.channels[3], "timestamp");
    // A null attribute is absent, like a missing one.
    EXPECT_EQ(d.attributes.size(), 2u);
    EXPECT_EQ(d.attributes.at("scale"), std::optional<std::string>("0.0010652"));
    EXPECT_EQ(d.attributes.count("location"), 0u);
    ASSERT_EQ(d.samples.size(), 2u);
    EXPECT_EQ(d.samples[0], (std::map<int32_t, int64_t>{{0, 100}, {1, -5}, {2, 7}, {3, 1000000}}));
    EXPECT_EQ(d.samples[1].at(3), INT64_MIN);
    EXPECT_EQ(d.maxFrequency, std::optional<double>(400.0));
    EXPECT_EQ(d.failChannels, (std::vector<int32_t>{1}));
    EXPECT_EQ(d.stall, Stall::kAttributes);
    EXPECT_EQ(d.closeAt, CloseAt::kAfterAttributes);
    EXPECT_EQ(d.replyDelay, std::chrono::milliseconds(250));

    // Optional fields keep the host's defaults.
    const VirtualDevice& bare = config.devices[1];
    EXPECT_TRUE(bare.types.empty());
    EXPECT_TRUE(bare.channels.empty());
    EXPECT_TRUE(bare.attributes.empty());
    EXPECT_TRUE(bare.samples.empty());
    EXPECT_FALSE(bare.maxFrequency.has_value());
    EXPECT_EQ(bare.stall, Stall::kNone);
    EXPECT_EQ(bare.closeAt, CloseAt::kNever);

    ASSERT_EQ(config.timeline.size(), 5u);
    EXPECT_EQ(config.timeline[0].action, TimelineAction::kObserverError);
    EXPECT_EQ(config.timeline[0].at, std::chrono::milliseconds(500));
    EXPECT_EQ(config.timeline[0].device, 3);
    EXPECT_EQ(config.timeline[0].error, 5);
    EXPECT_EQ(config.timeline[1].action, TimelineAction::kCloseDevice);
    EXPECT_EQ(config.timeline[1].device, -4);
    EXPECT_EQ(config.timeline[2].action, TimelineAction::kCloseService);
    EXPECT_EQ(config.timeline[2].reason, 4294967295u);
    EXPECT_EQ(config.timeline[2].description, "bye");
    EXPECT_EQ(config.timeline[3].action, TimelineAction::kTabletMode);
    EXPECT_TRUE(config.timeline[3].on);
    EXPECT_EQ(config.timeline[4].reason, 0u);
    EXPECT_EQ(config.timeline[4].description, "");
}

TEST(HostDescriptionTest, EmptyDescriptionIsAHostWithoutDevices) {
    HostConfig config = parseOk("{}");
    EXPECT_EQ(config.bridgeVersion, vel::mojom::kBridgeVersion);
    EXPECT_EQ(config.clientTypes, sensors::servedDeviceTypes());
    EXPECT_TRUE(config.devices.empty());
    EXPECT_TRUE(config.timeline.empty());
    EXPECT_EQ(parseOk(R"({"clientTypes": [9, 1]})").clientTypes, (std::vector<int32_t>{9, 1}));
}

TEST(HostDescriptionTest, ErrorsNameThePathAndTheProblem) {
    const std::string dev = R"({"devices": [{"id": 1, "types": [1], )";
    const struct {
        std::string text;
        std::string error;
    } cases[] = {
        {"[]", "/: expected an object"},
        {R"({"colour": 1})", "/: unknown key \"colour\""},
        {R"({"clientTypes": [1, "2"]})", "/clientTypes/1: expected an integer"},
        {R"({"bridgeVersion": -1})", "/bridgeVersion: -1 is out of range 0..4294967295"},
        {R"({"bridgeVersion": 4294967296})",
         "/bridgeVersion: 4294967296 is out of range 0..4294967295"},
        {R"({"bridgeVersion": 54.0})", "/bridgeVersion: expected an integer"},
        {R"({"devices": {}})", "/devices: expected an array"},
        {R"({"devices": [{"types": [1]}]})", "/devices/0: missing key \"id\""},
        {R"({"devices": [{"id": 2147483648, "types": []}]})",
         "/devices/0/id: 2147483648 is out of range -2147483648..2147483647"},
        {R"({"devices": [{"id": 1, "types": [1, "x"]}]})",
         "/devices/0/types/1: expected an integer"},
        {dev + R"("colour": "red"}]})", "/devices/0: unknown key \"colour\""},
        {dev + R"("channels": ["a", 2]}]})", "/devices/0/channels/1: expected a string"},
        {dev + R"("attributes": {"scale": 0.5}}]})",
         "/devices/0/attributes/scale: expected a string or null"},
        {dev + R"("attributes": {"a/b~": true}}]})",
         "/devices/0/attributes/a~1b~0: expected a string or null"},
        // Indices that name no channel: the column or value would never reach the library.
        {dev +
             R"("channels": ["x", "timestamp"], "timedSamples": {"channels": [0, 2], "samples": []}}]})",
         "/devices/0/timedSamples/channels/1: channel 2 does not exist; the device's channels are "
         "0..1"},
        {dev + R"("channels": ["x"], "timedSamples": {"channels": [-1], "samples": []}}]})",
         "/devices/0/timedSamples/channels/0: channel -1 does not exist; the device's channels "
         "are 0..0"},
        {dev + R"("samples": [{"0": 1}]}]})",
         "/devices/0/samples/0/0: channel 0 does not exist; the device lists no channels"},
        {dev + R"("samples": [{"x": 1}]}]})",
         "/devices/0/samples/0/x: key \"x\" is not a channel index (a decimal int32)"},
        {dev + R"("samples": [{"01": 1}]}]})",
         "/devices/0/samples/0/01: key \"01\" is not a channel index (a decimal int32)"},
        {dev + R"("samples": [{"2147483648": 1}]}]})",
         "/devices/0/samples/0/2147483648: key \"2147483648\" is not a channel index (a "
         "decimal int32)"},
        {dev + R"("samples": [{"1": 1.5}]}]})", "/devices/0/samples/0/1: expected an integer"},
        {dev + R"("samples": [{"1": 9223372036854775808}]}]})",
         "/devices/0/samples/0/1: 9223372036854775808 is out of range "
         "-9223372036854775808..9223372036854775807"},
        {dev + R"("maxFrequency": 0}]})",
         "/devices/0/maxFrequency: must be a positive number of Hz"},
        {dev + R"("maxFrequency": "fast"}]})", "/devices/0/maxFrequency: expected a number"},
        {dev + R"("failChannels": [true]}]})", "/devices/0/failChannels/0: expected an integer"},
        {dev + R"("stall": "sometimes"}]})",
         "/devices/0/stall: expected \"device\", \"channels\" or \"attributes\", got "
         "\"sometimes\""},
        {dev + R"("replyDelayMs": -1}]})",
         "/devices/0/replyDelayMs: -1 is out of range 0..2147483647"},
        {R"({"devices": [{"id": 1, "types": []}, {"id": 1, "types": []}]})",
         "/devices/1/id: duplicate device id 1"},
        {R"({"devices": [{"id": 1, "id": 2, "types": []}]})", "/devices/0: duplicate key \"id\""},
        {R"({"timeline": [{"atMs": 1, "action": "explode"}]})",
         "/timeline/0/action: expected \"observerError\", \"closeDevice\", \"closeService\" or "
         "\"tabletMode\", got \"explode\""},
        {R"({"timeline": [{"atMs": 1}]})", "/timeline/0: missing key \"action\""},
        {R"({"timeline": [{"atMs": -1, "action": "tabletMode", "on": true}]})",
         "/timeline/0/atMs: -1 is out of range 0..9223372036854775"},
        {R"({"timeline": [{"atMs": 1, "action": "tabletMode", "on": true, "device": 1}]})",
         "/timeline/0: unknown key \"device\""},
        {R"({"timeline": [{"atMs": 1, "action": "tabletMode"}]})",
         "/timeline/0: missing key \"on\""},
        {R"({"timeline": [{"atMs": 1, "action": "tabletMode", "on": 1}]})",
         "/timeline/0/on: expected true or false"},
        {R"({"timeline": [{"atMs": 1, "action": "closeDevice", "device": 9}]})",
         "/timeline/0/device: no device with id 9"},
        {R"({"timeline": [{"atMs": 1, "action": "closeService", "reason": -1}]})",
         "/timeline/0/reason: -1 is out of range 0..4294967295"},
        {R"({"timeline": [{"atMs": 1, "action": "closeService", "description": 3}]})",
         "/timeline/0/description: expected a string"},
    };
    for (const auto& c : cases) EXPECT_EQ(parseError(c.text), c.error) << c.text;
}

TEST(HostDescriptionTest, SyntaxErrorsGiveLineAndColumn) {
    std::string error = parseError("{\n  \"devices\": [\n    {\"id\": 1,,}\n  ]\n}");
    EXPECT_EQ(error.rfind("line 3, column ", 0), 0u) << error;
    EXPECT_NE(error.find("syntax error"), std::string::npos) << error;
    error = parseError("");
    EXPECT_EQ(error.rfind("line 1, column ", 0), 0u) << error;
}

TEST(HostDescriptionTest, LoadNamesTheFile) {
    const std::string dir = ::testing::TempDir();
    const std::string path = dir + "/description_test_host.json";
    {
        std::ofstream out(path);
        out << R"({"devices": [{"id": 1, "types": [1, "x"]}]})";
    }
    HostConfig config;
    std::string error;
    EXPECT_FALSE(loadHostDescription(path, &config, &error));
    EXPECT_EQ(error, path + ": /devices/0/types/1: expected an integer");

    const std::string missing = dir + "/description_test_missing.json";
    EXPECT_FALSE(loadHostDescription(missing, &config, &error));
    EXPECT_EQ(error, missing + ": cannot read: No such file or directory");
    std::remove(path.c_str());
}

TEST(HostDescriptionTest, BuiltInHostServesFiveStreamingSensors) {
    HostConfig config = builtInHost();
    EXPECT_EQ(config.bridgeVersion, vel::mojom::kBridgeVersion);
    EXPECT_TRUE(config.stream);
    ASSERT_EQ(config.devices.size(), 5u);
    const std::vector<int32_t> types[] = {{1}, {2}, {5}, {3}, {11}};
    const char* const locations[] = {"lid", "lid", "lid", "base", "lid"};
    for (size_t i = 0; i < 5; ++i) {
        const VirtualDevice& d = config.devices[i];
        SCOPED_TRACE(i);
        EXPECT_EQ(d.id, static_cast<int32_t>(i));
        EXPECT_EQ(d.types, types[i]);
        EXPECT_EQ(d.channels.back(), "timestamp");
        EXPECT_EQ(d.attributes.at("location"), std::optional<std::string>(locations[i]));
        EXPECT_GT(std::strtod(d.attributes.at("scale")->c_str(), nullptr), 0.0);
        EXPECT_TRUE(d.samples.empty());
        EXPECT_EQ(d.stall, Stall::kNone);
    }
    EXPECT_EQ(config.devices[0].attributes.at("scale"), std::optional<std::string>("0.0023928226"));
    EXPECT_EQ(config.devices[3].channels, (std::vector<std::string>{"illuminance", "timestamp"}));
}

}  // namespace
}  // namespace kelvane::host::description
