// The libiio host against a fake board (umockdev): what the library publishes and streams from
// it, value by value, in the C and a decimal-comma locale, locally and through iiod; a device
// that goes away; and the number rules the host answers with.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "HostWatch.h"
#include "IioSensorSubHal.h"
#include "host/libiio/IioNumbers.h"
#include "host/libiio/LibiioHost.h"
#include "tests/libiio/board.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_proxy_callback.h"
#include "tests/support/serve_client.h"
#include "tests/support/subprocess.h"
#include "tests/support/wait.h"
#include "vel/MojoProcessSupport.h"

extern char** environ;

namespace kelvane::sensors {
namespace {

using android::hardware::hidl_vec;
using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorInfo;
using android::hardware::sensors::V2_1::SensorType;
using testing::Board;
using testing::ExpectedEvent;

constexpr size_t kScansPerDevice = 4;

// Makes `name` the process's locale, building it with localedef where the system lacks it, and
// proves it took: a test that silently ran in the C locale would prove nothing.
void useLocale(const std::string& name) {
    if (std::setlocale(LC_ALL, name.c_str()) == nullptr) {
        char dirTemplate[] = "/tmp/libiio-locale-XXXXXX";
        const std::string dir = mkdtemp(dirTemplate);
        const std::string command =
            "localedef -i de_DE -f UTF-8 '" + dir + "/" + name + "' >/dev/null 2>&1";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
        setenv("LOCPATH", dir.c_str(), 1);
        ASSERT_NE(std::setlocale(LC_ALL, name.c_str()), nullptr) << name;
    }
    char text[16];
    std::snprintf(text, sizeof(text), "%.1f", 0.5);
    ASSERT_STREQ(text, "0,5") << "the decimal-comma locale is not in effect";
}

class LibiioHostTest : public ::testing::TestWithParam<std::string> {
  protected:
    ~LibiioHostTest() override {
        if (watch) watch->stop();
        subHal.clear();  // hands its bridge to the Mojo thread itself
        testing::Flush(vel::MojoProcessSupport::GetInstance()->getThread()->getTaskRunner());
        host.reset();
        std::setlocale(LC_ALL, "C");
    }

    void start() {
        ASSERT_NO_FATAL_FAILURE(openHost());
        startLibrary();
    }

    void openHost() {
        std::string error;
        host = host::iio::LibiioHost::open("local:", &error);
        ASSERT_TRUE(host) << error;
        watch = std::make_unique<tools::HostWatch>(host->log());
    }

    void startLibrary() {
        host->registerWithBridge();
        subHal = new IioSensorSubHal();
        proxy = new testing::RecordingProxyCallback();
        subHal->initialize(proxy);
        subHal->getSensorsList_2_1([this](const hidl_vec<SensorInfo>& l) { sensors = l; });
    }

    bool waitForEvents(int32_t handle, size_t n) {
        const auto deadline = std::chrono::steady_clock::now() + testing::kWaitLimit;
        while (proxy->eventsFor(handle).size() < n) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            proxy->waitForEvents(proxy->eventCount() + 1);
        }
        return true;
    }

    void expectEvents(int32_t handle, const std::vector<ExpectedEvent>& expected) {
        ASSERT_TRUE(waitForEvents(handle, expected.size())) << "handle " << handle;
        const std::vector<Event> events = proxy->eventsFor(handle);
        for (size_t i = 0; i < expected.size(); ++i) {
            SCOPED_TRACE("handle " + std::to_string(handle) + " event " + std::to_string(i));
            EXPECT_EQ(events[i].timestamp, expected[i].timestamp);
            EXPECT_EQ(events[i].u.vec3.x, expected[i].values[0]);
            EXPECT_EQ(events[i].u.vec3.y, expected[i].values[1]);
            EXPECT_EQ(events[i].u.vec3.z, expected[i].values[2]);
        }
    }

    Board board;
    testing::LogCapture logs;
    std::unique_ptr<host::iio::LibiioHost> host;
    std::unique_ptr<tools::HostWatch> watch;  // what the tool would say of the host
    android::sp<IioSensorSubHal> subHal;
    android::sp<testing::RecordingProxyCallback> proxy;
    std::vector<SensorInfo> sensors;
};

TEST_P(LibiioHostTest, PublishesTheBoardAndStreamsItsScansBitExact) {
    if (GetParam() != "C") useLocale(GetParam());
    ASSERT_NO_FATAL_FAILURE(start());

    // The trigger is no device; handles follow device ids; location beats label, label maps.
    ASSERT_EQ(sensors.size(), 5u);
    const std::pair<SensorType, std::string> published[] = {
        {SensorType::ACCELEROMETER, "Accelerometer (lid)"},
        {SensorType::GYROSCOPE, "Gyroscope (lid)"},
        {SensorType::LIGHT, "Light"},
        {SensorType::MAGNETIC_FIELD, "Magnetometer (base)"},
        {SensorType::GRAVITY, "Gravity"}};
    for (size_t i = 0; i < sensors.size(); ++i) {
        EXPECT_EQ(sensors[i].sensorHandle, static_cast<int32_t>(i + 1));
        EXPECT_EQ(sensors[i].type, published[i].first);
        EXPECT_EQ(std::string(sensors[i].name), published[i].second);
    }

    subHal->batch(1, 25000000, 0);  // 40 Hz: the accelerometer offers 25 or 50, 50 is nearer
    for (int32_t handle = 1; handle <= 5; ++handle) subHal->activate(handle, true);
    for (const auto& [handle, expected] : Board::expectedEvents()) expectEvents(handle, expected);
    ASSERT_TRUE(waitForEvents(Board::kLightHandle, 2));
    for (const Event& e : proxy->eventsFor(Board::kLightHandle)) EXPECT_EQ(e.u.scalar, Board::kLux);
    for (int32_t handle = 1; handle <= 5; ++handle) subHal->activate(handle, false);

    EXPECT_EQ(board.attribute(0, "sampling_frequency"), "50\n");
    EXPECT_EQ(board.attribute(1, "sampling_frequency"), "50\n");  // on the range's grid
    // Gravity has no rate of its own: its trigger's is set.
    EXPECT_EQ(board.attribute(Board::kGravityTrigger, "sampling_frequency"), "50\n");
    EXPECT_EQ(board.attribute(0, "current_timestamp_clock"), "boottime\n");
    EXPECT_TRUE(logs.contains("IioSensorDevice: frequency set to 50 Hz"));
    EXPECT_EQ(host->log().count(
                  host::common::HostEventPattern(host::common::HostEventKind::kFrequencyAsked, 2)
                      .with(host::common::Rate{50})),
              1u);
}

INSTANTIATE_TEST_SUITE_P(Locales, LibiioHostTest, ::testing::Values("C", "de_DE.UTF-8"),
                         [](const auto& info) {
                             return info.param == "C" ? std::string("C") : "DecimalComma";
                         });

class LibiioHostFaultTest : public LibiioHostTest {};

TEST_F(LibiioHostFaultTest, DeviceGoneMidStreamGetsReadFailedAndClosedWhileOthersStream) {
    ASSERT_NO_FATAL_FAILURE(start());
    subHal->activate(1, true);
    subHal->activate(Board::kLightHandle, true);
    ASSERT_TRUE(waitForEvents(1, kScansPerDevice));
    board.remove(0);
    // Noticed at the next read, which waits out the library's 5 s time-out.
    EXPECT_TRUE(logs.waitFor("IioSensorDevice 0: observer error 5"));
    // The host says why, in libiio's words, and closes the device.
    const auto closed =
        host::common::HostEventPattern(host::common::HostEventKind::kClosedByHost, 0)
            .withPipe(host::common::HostPipe::kSensorDevice);
    ASSERT_TRUE(host->log().waitFor(
        [&](const std::vector<host::common::HostEvent>& events) {
            return std::any_of(events.begin(), events.end(),
                               [&](const host::common::HostEvent& e) { return closed.matches(e); });
        },
        std::chrono::seconds(15)));
    const auto readFailed =
        host::common::HostEventPattern(host::common::HostEventKind::kObserverError, 0)
            .with(host::common::ObserverError{5});
    EXPECT_EQ(host->log().count(readFailed), 1u);
    for (const host::common::HostEvent& e : host->log().events()) {
        if (readFailed.matches(e)) {
            EXPECT_EQ(e.reason, "device gone: No such device (19)");
        }
    }
    EXPECT_FALSE(host->log().streaming(0));
    watch->stop();
    const std::vector<std::string> problems = watch->problems();
    ASSERT_FALSE(problems.empty());
    EXPECT_EQ(
        problems[0].rfind("device 0: observer error 5 (device gone: No such device (19)) at ", 0),
        0u)
        << problems[0];
    const size_t light = proxy->eventsFor(Board::kLightHandle).size();
    EXPECT_TRUE(waitForEvents(Board::kLightHandle, light + 2));
    EXPECT_EQ(proxy->eventsFor(1).size(), kScansPerDevice);
}

// A device that went away after the context was made cannot be opened: the tool says so, in
// libiio's words, and the library publishes the others.
TEST_F(LibiioHostFaultTest, DeviceGoneBeforeItIsOpenedIsOneTrueLine) {
    ASSERT_NO_FATAL_FAILURE(openHost());
    board.remove(1);
    startLibrary();
    ASSERT_EQ(sensors.size(), 4u);
    watch->enumerationDone(sensors.size(), std::nullopt);
    EXPECT_EQ(watch->problems(),
              std::vector<std::string>{
                  "device 1 never became ready: the host could not answer its device request "
                  "(GetDevice): cannot open the device: No such file or directory (2)"});
    EXPECT_EQ(host->log().count(
                  host::common::HostEventPattern(host::common::HostEventKind::kStepFailed, 1)
                      .withStep(host::common::HostStep::kGetDevice)),
              1u);
}

// The same board served by iiod and read by the tool over the network.
class IiodTest : public ::testing::Test {
  protected:
    explicit IiodTest(std::optional<Board::Pause> pause = std::nullopt) : board(pause) {}
    ~IiodTest() override {
        if (mIiod > 0) {
            kill(mIiod, SIGKILL);  // iiod lingers for a minute on SIGTERM
            waitpid(mIiod, nullptr, 0);
        }
    }

    // Starts iiod on a port that was free a moment ago; false if it never accepts.
    bool startIiod() {
        int probe = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        bind(probe, reinterpret_cast<sockaddr*>(&address), length);
        getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
        mPort = ntohs(address.sin_port);
        close(probe);
        const std::string port = std::to_string(mPort);
        const char* argv[] = {"iiod", "-p", port.c_str(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        const int spawned = posix_spawnp(&mIiod, "iiod", &actions, nullptr,
                                         const_cast<char* const*>(argv), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (spawned != 0) return false;
        // iiod says nothing when it listens: connect until it answers, within the limit.
        const auto deadline = std::chrono::steady_clock::now() + testing::kWaitLimit;
        while (std::chrono::steady_clock::now() < deadline) {
            int s = socket(AF_INET, SOCK_STREAM, 0);
            address.sin_port = htons(mPort);
            const bool up = connect(s, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
            close(s);
            if (up) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

    // Runs the tool against the board through iiod, or against `source` (tool options) if
    // given; returns its stdout; `status` gets its exit status.
    std::string runTool(const std::vector<std::string>& args, int* status,
                        std::vector<std::string> source = {}) {
        if (source.empty()) source = {"--iio", "ip:127.0.0.1:" + std::to_string(mPort)};
        std::vector<std::string> argv = {KELVANE_TOOL};
        argv.insert(argv.end(), source.begin(), source.end());
        argv.insert(argv.end(), args.begin(), args.end());
        testing::ProcessRun run = testing::runProcess(argv);
        *status = run.finished ? run.exitCode : -1;
        return run.out;
    }

    Board board;
    pid_t mIiod = -1;
    int mPort = 0;
};

TEST_F(IiodTest, ToolListsAndStreamsTheBoardOverTheNetwork) {
    ASSERT_TRUE(startIiod()) << "iiod did not start on 127.0.0.1:" << mPort;
    int status = 0;
    const nlohmann::json list = nlohmann::json::parse(runTool({"list", "--json"}, &status));
    EXPECT_EQ(status, 0);
    ASSERT_EQ(list.size(), 5u);
    EXPECT_EQ(list[0]["name"], "Accelerometer (lid)");
    EXPECT_EQ(list[3]["name"], "Magnetometer (base)");

    for (int32_t handle : {1, 4}) {
        const std::string out = runTool({"stream", "--json", "--sensor", std::to_string(handle),
                                         "--count", std::to_string(kScansPerDevice)},
                                        &status);
        EXPECT_EQ(status, 0);
        std::vector<nlohmann::json> events;
        size_t start = 0;
        for (size_t end; (end = out.find('\n', start)) != std::string::npos; start = end + 1) {
            events.push_back(nlohmann::json::parse(out.substr(start, end - start)));
        }
        const std::vector<ExpectedEvent> expected = Board::expectedEvents().at(handle);
        ASSERT_EQ(events.size(), expected.size());
        for (size_t i = 0; i < events.size(); ++i) {
            EXPECT_EQ(events[i]["timestamp"], expected[i].timestamp);
            for (int axis = 0; axis < 3; ++axis) {
                EXPECT_EQ(events[i]["values"][axis].get<float>(), expected[i].values[axis]);
            }
        }
    }
}

// The page's server against the board through iiod: the board's sensors, live.
TEST_F(IiodTest, ServeShowsTheBoardOverTheNetwork) {
    ASSERT_TRUE(startIiod()) << "iiod did not start on 127.0.0.1:" << mPort;
    const std::string uri = "ip:127.0.0.1:" + std::to_string(mPort);
    const testing::ProcessRun run = testing::runServe(
        KELVANE_TOOL, {"--iio", uri, "serve", "--port", "0"}, [&](testing::ServeUrl& s) {
            auto info = s.client()->Get("/api/info", s.headers());
            ASSERT_TRUE(info);
            const nlohmann::json body = nlohmann::json::parse(info->body);
            EXPECT_EQ(body["host"], "the IIO devices of " + uri);
            ASSERT_EQ(body["sensors"].size(), 5u);
            EXPECT_EQ(body["sensors"][3]["name"], "Magnetometer (base)");
            testing::Follower page(s);
            s.client()->Post("/api/sensors/1/active", s.headers(), R"({"on":true})",
                             "application/json");
            EXPECT_TRUE(page.waitFor(R"("handle":1,"total":)" + std::to_string(kScansPerDevice)));
        });
    EXPECT_EQ(run.exitCode, 0) << run.err;
}

// Locally and through iiod, the tool follows every device of the board through its setup and
// has nothing to warn about: the libiio host answers each step as the emulated one does.
TEST_F(IiodTest, ToolSetsUpEveryDeviceWithoutAWarningLocallyAndOverTheNetwork) {
    ASSERT_TRUE(startIiod()) << "iiod did not start on 127.0.0.1:" << mPort;
    const std::string iiod = "ip:127.0.0.1:" + std::to_string(mPort);
    for (const std::string& uri : {std::string("local:"), iiod}) {
        for (const std::vector<std::string>& command :
             {std::vector<std::string>{"list"},
              // The light is polled and never runs out; the scripted scans of the buffered
              // devices would.
              std::vector<std::string>{"stream", "--sensor", "3", "--count", "2"}}) {
            SCOPED_TRACE(uri + " " + command[0]);
            std::vector<std::string> argv = {KELVANE_TOOL, "--iio", uri};
            argv.insert(argv.end(), command.begin(), command.end());
            const testing::ProcessRun run = testing::runProcess(argv);
            EXPECT_EQ(run.exitCode, 0) << run.err;
            for (int device = 0; device < 5; ++device) {
                const std::string line = "host: device " + std::to_string(device) + " set up\n";
                EXPECT_NE(run.err.find(line), std::string::npos) << run.err;
            }
            EXPECT_EQ(run.err.find("iio-subhal: warning"), std::string::npos) << run.err;
        }
    }
}

// Asked for 400 Hz, the host answers the rate the board runs at: the accelerometer's file, read
// back after writing (200 Hz, its fastest); the magnetometer has no sampling_frequency, nor a
// trigger, so no rate is claimed and the tool says why, once.
TEST_F(IiodTest, ToolAskingFourHundredHertzRecordsTheRateTheBoardRunsAt) {
    char path[] = "/tmp/board-rate-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    // The board's four scans fill no 400 Hz read of the magnetometer: only the accelerometer,
    // whose read-back rate is 200 Hz, streams them all.
    auto answers = [&](const std::string& sensor, std::string* err) {
        const testing::ProcessRun run = testing::runProcess(
            {KELVANE_TOOL, "--iio", "local:", "stream", "--sensor", sensor, "--rate", "400",
             "--count", std::to_string(kScansPerDevice), "--record", path});
        if (sensor == "1") {
            EXPECT_EQ(run.exitCode, 0) << run.err;
        }
        *err = run.err;
        std::ifstream in(path);
        const nlohmann::json recording = nlohmann::json::parse(in, nullptr, false);
        for (const nlohmann::json& device : recording.value("devices", nlohmann::json::array())) {
            if (device.contains("frequencyAnswers")) return device["frequencyAnswers"];
        }
        return nlohmann::json();
    };
    std::string err;
    EXPECT_EQ(answers("1", &err), nlohmann::json::parse("[[400, 200]]"));
    EXPECT_EQ(board.attribute(0, "sampling_frequency"), "200\n");
    EXPECT_NE(err.find("400 Hz asked, the host answered 200 Hz"), std::string::npos) << err;

    const nlohmann::json magnetometer = answers("4", &err);
    ASSERT_FALSE(magnetometer.empty());
    for (const nlohmann::json& answer : magnetometer) EXPECT_NE(answer[1], 400) << magnetometer;
    const std::string reason =
        "iio:device3 (ak8975) has no sampling_frequency, nor has its trigger";
    const size_t said = err.find(reason);
    EXPECT_NE(said, std::string::npos) << err;
    EXPECT_EQ(err.find(reason, said + 1), std::string::npos) << err;
    unlink(path);
}

// iiod killed mid-stream: the tool says the host is lost, ends the stream with exit code 1 and
// writes its recording; it used to go quiet and then die of SIGPIPE (141) with no recording.
TEST_F(IiodTest, IiodKilledMidStreamIsALostHostWithTheRecordingWritten) {
    ASSERT_TRUE(startIiod()) << "iiod did not start on 127.0.0.1:" << mPort;
    char dir[] = "/tmp/iiod-lost-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string recording = std::string(dir) + "/field.json";
    testing::ProcessOptions options;
    options.onOutput = [this](pid_t, const testing::ProcessRun& run) {
        if (mIiod > 0 && std::count(run.out.begin(), run.out.end(), '\n') >= 2) {
            kill(mIiod, SIGKILL);
            waitpid(mIiod, nullptr, 0);
            mIiod = -1;
        }
    };
    // The light is polled and never runs out, so only the lost host can end this stream.
    const testing::ProcessRun run =
        testing::runProcess({KELVANE_TOOL, "--iio", "ip:127.0.0.1:" + std::to_string(mPort),
                             "stream", "--sensor", "3", "--follow", "--record", recording},
                            options);
    ASSERT_TRUE(run.finished) << run.err;
    EXPECT_EQ(mIiod, -1);
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_NE(run.err.find("iio-subhal: the host is lost: it closed every device that was "
                           "streaming (device 2 at "),
              std::string::npos)
        << run.err;
    std::ifstream written(recording);
    const nlohmann::json replay = nlohmann::json::parse(written, nullptr, false);
    EXPECT_TRUE(replay.is_object() && replay["devices"].size() == 5u) << run.err;
    std::remove(recording.c_str());
    rmdir(dir);
}

// The accelerometer's buffer runs dry for longer than iiod's read time-out (2.5 s, half the
// library's), then fills again. The pause counts from the board's making: the first read comes
// after the library's 2 s of enumeration, the time-out 2.5 s later, the scans after 8 s.
class IiodPausedBoardTest : public IiodTest {
  protected:
    IiodPausedBoardTest() : IiodTest(Board::Pause{0, 2, 8000}) {}
};

// iiod closes a device whose read timed out and answers every later read with EBADF: the host
// used to give the device up there, and the tool, its only streaming device lost, the host.
TEST_F(IiodPausedBoardTest, ADeviceThatTimesOutThroughIiodStreamsAgain) {
    ASSERT_TRUE(startIiod()) << "iiod did not start on 127.0.0.1:" << mPort;
    const testing::ProcessRun run = testing::runProcess(
        {KELVANE_TOOL, "--iio", "ip:127.0.0.1:" + std::to_string(mPort), "stream", "--json",
         "--sensor", "1", "--count", std::to_string(kScansPerDevice), "--duration", "30"});
    ASSERT_TRUE(run.finished) << run.err;
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.err.find("iio-subhal: warning: device 0: observer error 6 (time-out: "),
              std::string::npos)
        << run.err;
    EXPECT_EQ(run.err.find("read failed"), std::string::npos) << run.err;
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), kScansPerDevice) << run.err;
}

// What the board served, recorded by the tool, replays through the library as the same events:
// values bit for bit and the board's own timestamps.
TEST_F(IiodTest, RecordingOfTheBoardReplaysTheSameEvents) {
    ASSERT_TRUE(startIiod()) << "iiod did not start on 127.0.0.1:" << mPort;
    char path[] = "/tmp/board-recording-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    const std::vector<std::string> stream = {
        "stream",   "--json", "--sensor", "1",
        "--sensor", "4",      "--count",  std::to_string(2 * kScansPerDevice)};
    std::vector<std::string> recording = stream;
    recording.insert(recording.end(), {"--record", path});
    int status = 0;
    const std::string live = runTool(recording, &status);
    EXPECT_EQ(status, 0);
    const std::string replayed = runTool(stream, &status, {"--host", path, "--speed", "0"});
    EXPECT_EQ(status, 0);
    EXPECT_EQ(std::count(live.begin(), live.end(), '\n'), 2 * kScansPerDevice);
    EXPECT_EQ(replayed, live);
    unlink(path);
}

// The conformance rules that need no more than the board's few scripted scans hold for its
// sensors too (initialize-twice and the stream rules want a stream that goes on).
TEST_F(IiodTest, BoardPassesTheListAndCommandRules) {
    ASSERT_TRUE(startIiod()) << "iiod did not start on 127.0.0.1:" << mPort;
    int status = 0;
    const std::string out = runTool({"check", "--json", "--quick", "--rule", "list.*", "--rule",
                                     "commands.[abdfo]*", "--rule", "commands.invalid-handle"},
                                    &status);
    EXPECT_EQ(status, 0) << out;
    size_t results = 0;
    size_t start = 0;
    for (size_t end; (end = out.find('\n', start)) != std::string::npos; start = end + 1) {
        const nlohmann::json result = nlohmann::json::parse(out.substr(start, end - start));
        EXPECT_NE(result["verdict"], "FAIL") << result.dump();
        ++results;
    }
    EXPECT_GT(results, 5u * 10u);  // every list rule for each of the five sensors, at least
}

// The compatibility suite's statistics judge the board's own timestamps, recorded and live: its
// scripted scans are 1 us apart, which no rate the suite asks for allows. The board serves its
// scans once, so the recording takes them and the live run sees the stream stop; the board's
// clock is not this machine's, so the live timestamp rules of its buffered devices say so instead
// of judging; the light sensor, read and stamped here, is judged.
TEST_F(IiodTest, BoardAndItsRecordingAreJudgedByTheCompatibilityRules) {
    ASSERT_TRUE(startIiod()) << "iiod did not start on 127.0.0.1:" << mPort;
    auto results = [](const std::string& out) {
        std::map<std::string, nlohmann::json> byRuleAndSubject;
        size_t start = 0;
        for (size_t end; (end = out.find('\n', start)) != std::string::npos; start = end + 1) {
            const nlohmann::json r = nlohmann::json::parse(out.substr(start, end - start));
            byRuleAndSubject[r["rule"].get<std::string>() + " " + r["subject"].get<std::string>()] =
                r;
        }
        return byRuleAndSubject;
    };
    char path[] = "/tmp/board-recording-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    int status = 0;
    runTool(
        {"stream", "--sensor", "1", "--count", std::to_string(kScansPerDevice), "--record", path},
        &status);
    ASSERT_EQ(status, 0);

    const std::vector<std::string> check = {
        "check",         "--json", "--quick",           "--rule", "cts.min-delay",       "--rule",
        "cts.frequency", "--rule", "cts.timestamp-age", "--rule", "cts.timestamp-future"};
    auto replayed = results(runTool(check, &status, {"--host", path, "--speed", "0"}));
    EXPECT_EQ(status, 1);
    EXPECT_EQ(replayed["cts.frequency Accelerometer (lid) @ 50 Hz"]["detail"],
              "frequency 1e+06 Hz at 50 Hz requested, needs 45 < f < 110");
    EXPECT_EQ(replayed.count("cts.frequency Accelerometer (lid) @ FASTEST"), 0u)
        << "no row for a rate the recording never held";
    EXPECT_EQ(replayed["cts.timestamp-age Accelerometer (lid) @ 50 Hz"]["verdict"], "SKIP");
    unlink(path);

    auto live = results(runTool(check, &status));
    EXPECT_EQ(status, 1);
    EXPECT_EQ(live["cts.min-delay Accelerometer (lid)"]["verdict"], "PASS");
    EXPECT_EQ(live["cts.frequency Accelerometer (lid) @ FASTEST"]["verdict"], "FAIL");
    EXPECT_EQ(live["cts.timestamp-age Accelerometer (lid) @ FASTEST"]["detail"],
              "the board's timestamps are on its own clock, not this machine's");
    // The light sensor has no timestamp channel: its events are stamped here, so judged.
    size_t lights = 0;
    for (const auto& [key, r] : live) {
        if (key.rfind("cts.timestamp-future Light", 0) != 0) continue;
        ++lights;
        EXPECT_EQ(r["verdict"], "PASS") << r.dump();
    }
    EXPECT_EQ(lights, 1u);
}

TEST(LibiioNumbersTest, NearestAvailableRate) {
    using host::iio::nearestAvailable;
    EXPECT_EQ(nearestAvailable("12.5 25 50 100\n", 40), 50);
    EXPECT_EQ(nearestAvailable("12.5 25 50 100", 37.5), 50);  // a tie goes up
    EXPECT_EQ(nearestAvailable("12.5 25 50 100", 1e6), 100);
    EXPECT_EQ(nearestAvailable("12.5 25 50 100", INFINITY), 100);
    EXPECT_EQ(nearestAvailable("[10 10 400]", 44), 40);
    EXPECT_EQ(nearestAvailable("[10 10 400]", 5), 10);
    EXPECT_EQ(nearestAvailable("[10 10 400]", INFINITY), 400);
    EXPECT_EQ(nearestAvailable("[0.5 0.25 2]", 1.3), 1.25);
    EXPECT_EQ(nearestAvailable("", 50), std::nullopt);
    EXPECT_EQ(nearestAvailable("fast slow", 50), std::nullopt);
}

TEST(LibiioNumbersTest, TextIsCLocaleWithoutNewline) {
    using host::iio::formatNumber;
    using host::iio::parseNumber;
    EXPECT_EQ(parseNumber("0.009582\n"), 0.009582);
    EXPECT_EQ(parseNumber("0,009582"), std::nullopt);
    EXPECT_EQ(parseNumber("1.5x"), std::nullopt);
    EXPECT_EQ(parseNumber(""), std::nullopt);
    EXPECT_EQ(formatNumber(0.00125 * 100.0), "0.125");
    EXPECT_EQ(formatNumber(1.0), "1");
    EXPECT_EQ(formatNumber(2.5e-5), "2.5e-05");
    EXPECT_EQ(parseNumber(formatNumber(0.1 * 3)), 0.1 * 3);  // reads back exactly
}

}  // namespace
}  // namespace kelvane::sensors
