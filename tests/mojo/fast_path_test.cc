// What the fast sample path relies on: batched dispatch keeps order and hands a pipe over
// mid-batch without losing or repeating a message, queued handles still close with their pipe,
// samples survive the compact message form whatever their size, and the map insertion that
// rebuilds them appends only where that keeps the map sorted.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "base/containers/flat_map.h"
#include "base/threading/thread.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "mojo/public/cpp/bindings/binding.h"
#include "tests/support/wait.h"

namespace kelvane::bench {
namespace {

namespace cm = chromeos::sensors::mojom;
using Sample = base::flat_map<int32_t, int64_t>;
using testing::RunAndWait;
using testing::Signal;

// Records samples and the threads they arrived on; may act on a sample before recording it.
class RecordingObserver : public cm::SensorDeviceSamplesObserver {
  public:
    void OnSampleUpdated(const Sample& sample) override {
        if (onSample) onSample(sample);
        signal.Notify([&] {
            samples.push_back(sample);
            threads.push_back(std::this_thread::get_id());
        });
    }
    void OnErrorOccurred(cm::ObserverErrorType) override {}

    size_t count() {
        std::lock_guard<std::mutex> lock(signal.mutex());
        return samples.size();
    }

    std::function<void(const Sample&)> onSample;
    Signal signal;
    std::vector<Sample> samples;
    std::vector<std::thread::id> threads;
};

class FastPathTest : public ::testing::Test {
  protected:
    void SetUp() override {
        sender.Start();
        first.Start();
        second.Start();
    }
    void TearDown() override {
        RunAndWait(sender.task_runner(), [&] { ptr.reset(); });
        RunAndWait(first.task_runner(), [&] { firstBinding.reset(); });
        RunAndWait(second.task_runner(), [&] { secondBinding.reset(); });
    }

    base::Thread sender{"sender"};
    base::Thread first{"first"};
    base::Thread second{"second"};
    cm::SensorDeviceSamplesObserverPtr ptr;
    std::unique_ptr<mojo::Binding<cm::SensorDeviceSamplesObserver>> firstBinding;
    std::unique_ptr<mojo::Binding<cm::SensorDeviceSamplesObserver>> secondBinding;
};

TEST_F(FastPathTest, BurstsArriveInOrderAcrossAHandoverInTheMiddleOfABatch) {
    // Larger than what a queue keeps between bursts, so storage is dropped and grown again.
    constexpr int kBurst = 20000;
    constexpr int kHandover = 7777;
    RecordingObserver firstSink;
    RecordingObserver secondSink;
    cm::SensorDeviceSamplesObserverRequest request;
    RunAndWait(sender.task_runner(), [&] { request = mojo::MakeRequest(&ptr); });
    RunAndWait(first.task_runner(), [&] {
        firstBinding = std::make_unique<mojo::Binding<cm::SensorDeviceSamplesObserver>>(
            &firstSink, std::move(request));
    });
    // Hands the pipe, with whatever is queued on it, to another thread from inside a dispatch.
    using ObserverBinding = mojo::Binding<cm::SensorDeviceSamplesObserver>;
    std::unique_ptr<ObserverBinding>* handedTo = &secondBinding;
    firstSink.onSample = [&](const Sample& sample) {
        if (sample.at(0) != kHandover) return;
        auto rest =
            std::make_shared<cm::SensorDeviceSamplesObserverRequest>(firstBinding->Unbind());
        second.task_runner()->PostTask(
            FROM_HERE, base::BindOnce(
                           [](std::unique_ptr<ObserverBinding>* binding, RecordingObserver* sink,
                              std::shared_ptr<cm::SensorDeviceSamplesObserverRequest> request) {
                               *binding =
                                   std::make_unique<ObserverBinding>(sink, std::move(*request));
                           },
                           handedTo, &secondSink, rest));
    };
    for (int burst = 0; burst < 2; ++burst) {
        RunAndWait(sender.task_runner(), [&, burst] {
            for (int i = 0; i < kBurst; ++i) ptr->OnSampleUpdated({{0, burst * kBurst + i}});
        });
    }
    ASSERT_TRUE(secondSink.signal.WaitUntil(
        [&] { return secondSink.samples.size() == size_t{2 * kBurst - kHandover - 1}; }));

    std::lock_guard<std::mutex> lockFirst(firstSink.signal.mutex());
    std::lock_guard<std::mutex> lockSecond(secondSink.signal.mutex());
    ASSERT_EQ(firstSink.samples.size(), size_t{kHandover + 1});
    for (int i = 0; i <= kHandover; ++i) ASSERT_EQ(firstSink.samples[i].at(0), i);
    for (size_t i = 0; i < secondSink.samples.size(); ++i) {
        ASSERT_EQ(secondSink.samples[i].at(0), static_cast<int64_t>(kHandover + 1 + i));
    }
    for (auto id : firstSink.threads) EXPECT_EQ(id, first.GetThreadId());
    for (auto id : secondSink.threads) EXPECT_EQ(id, second.GetThreadId());
}

TEST_F(FastPathTest, ClosingAPipeClosesTheHandlesQueuedOnIt) {
    constexpr int kObservers = 3;
    RecordingObserver sink;
    Signal closed;
    int errors = 0;  // guarded by closed's mutex
    std::vector<std::unique_ptr<mojo::Binding<cm::SensorDeviceSamplesObserver>>> observers;
    cm::SensorDevicePtr device;
    cm::SensorDeviceRequest deviceRequest;
    RunAndWait(sender.task_runner(), [&] {
        deviceRequest = mojo::MakeRequest(&device);
        for (int k = 0; k < kObservers; ++k) {
            cm::SensorDeviceSamplesObserverPtr observer;
            observers.push_back(std::make_unique<mojo::Binding<cm::SensorDeviceSamplesObserver>>(
                &sink, mojo::MakeRequest(&observer)));
            observers.back()->set_connection_error_handler(base::BindOnce(
                [](Signal* s, int* e) { s->Notify([e] { ++*e; }); }, &closed, &errors));
            device->StartReadingSamples(std::move(observer));
        }
        // The receiving end was never bound: its queue goes with it, and so do the observers.
        deviceRequest = cm::SensorDeviceRequest();
    });
    EXPECT_TRUE(closed.WaitUntil([&] { return errors == kObservers; }));
    RunAndWait(sender.task_runner(), [&] {
        observers.clear();
        device.reset();
    });
}

TEST_F(FastPathTest, SamplesOfEverySizeTravelIntact) {
    RecordingObserver sink;
    cm::SensorDeviceSamplesObserverRequest request;
    RunAndWait(sender.task_runner(), [&] { request = mojo::MakeRequest(&ptr); });
    RunAndWait(first.task_runner(), [&] {
        firstBinding = std::make_unique<mojo::Binding<cm::SensorDeviceSamplesObserver>>(
            &sink, std::move(request));
    });
    std::vector<Sample> sent;
    for (int size : {0, 1, 4, 5, 12, 1}) {
        Sample sample;
        for (int k = 0; k < size; ++k) sample[k * 3 - 4] = (int64_t{1} << 40) * (k % 2 ? -k : k);
        sent.push_back(sample);
    }
    RunAndWait(sender.task_runner(), [&] {
        for (const Sample& s : sent) ptr->OnSampleUpdated(s);
    });
    ASSERT_TRUE(sink.signal.WaitUntil([&] { return sink.samples.size() == sent.size(); }));
    std::lock_guard<std::mutex> lock(sink.signal.mutex());
    EXPECT_EQ(sink.samples, sent);
}

TEST(FastPathNestingTest, ASampleDispatchedInsideAnotherLeavesTheOuterOneIntact) {
    // The proxy feeds the stub directly, so the inner call dispatches while the outer one runs.
    cm::SensorDeviceSamplesObserverStub stub;
    cm::SensorDeviceSamplesObserverProxy proxy(&stub);
    RecordingObserver sink;
    stub.set_sink(&sink);
    const Sample outer = {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {7, 8}};
    const Sample inner = {{5, 50}};
    Sample outerAfterInner;
    sink.onSample = [&](const Sample& sample) {
        if (sample != outer) return;
        proxy.OnSampleUpdated(inner);
        outerAfterInner = sample;
    };
    proxy.OnSampleUpdated(outer);
    EXPECT_EQ(outerAfterInner, outer);
    EXPECT_EQ(sink.samples, (std::vector<Sample>{inner, outer}));
}

TEST(FlatMapHintTest, AnEndHintAppendsOnlyAKeyAboveAllOthers) {
    base::flat_map<int, int> map;
    map.insert(map.end(), {1, 10});
    map.insert(map.end(), {5, 50});
    map.insert(map.end(), {3, 30});  // below the last key: placed in order
    map.insert(map.end(), {5, 99});  // present: kept as it was
    auto it = map.insert(map.end(), {9, 90});
    EXPECT_EQ(it->first, 9);
    map.insert(map.begin(), {7, 70});  // any other hint is only a hint
    EXPECT_EQ(map, (base::flat_map<int, int>{{1, 10}, {3, 30}, {5, 50}, {7, 70}, {9, 90}}));
}

}  // namespace
}  // namespace kelvane::bench
