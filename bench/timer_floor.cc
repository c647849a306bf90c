#include "bench/timer_floor.h"

#include <sys/prctl.h>
#include <utils/SystemClock.h>

#include <algorithm>
#include <cstring>

#include "base/bind.h"
#include "base/location.h"
#include "base/time/time.h"

namespace kelvane::bench {

using android::hardware::sensors::V2_1::SensorType;

TimerFloor::TimerFloor(const std::vector<Stream>& streams,
                       const std::vector<host::description::VirtualDevice>& devices,
                       CountingProxyCallback* proxy, SampleTimeLog* sent)
    : mProxy(proxy), mSent(sent), mTimer("floor-timer"), mHandOff("floor-handoff") {
    mTimer.Start();
    mHandOff.Start();
    mTimer.task_runner()->PostTask(
        FROM_HERE, base::BindOnce([] { prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL); }));
    // Streams start a fraction of the fastest period apart, so that no two ticks coincide
    // and every sample costs its own wake-ups, as samples of separate devices do.
    double fastest = 0;
    for (const Stream& s : streams) fastest = std::max(fastest, s.hz);
    const int64_t nowNs = android::elapsedRealtimeNano();
    for (size_t i = 0; i < streams.size(); ++i) {
        const double offset = static_cast<double>(i) / (fastest * streams.size());
        const auto device = std::find_if(devices.begin(), devices.end(),
                                         [&](const auto& d) { return d.id == streams[i].device; });
        mTickers.push_back(Ticker{this, streams[i], nowNs + static_cast<int64_t>(offset * 1e9), 0,
                                  std::make_unique<host::emulated::SampleGenerator>(*device)});
    }
    for (Ticker& t : mTickers) {
        mTimer.task_runner()->PostTask(FROM_HERE, base::BindOnce(&TimerFloor::schedule, &t));
    }
}

TimerFloor::~TimerFloor() {
    mTimer.Stop();
    mHandOff.Stop();
}

void TimerFloor::schedule(Ticker* t) {
    // The task loop's microseconds, rounded up: a tick never runs before its sample is due.
    const int64_t waitNs = t->dueNs(t->next) - android::elapsedRealtimeNano();
    t->floor->mTimer.task_runner()->PostDelayedTask(
        FROM_HERE, base::BindOnce(&TimerFloor::tick, t),
        base::TimeDelta::FromMicroseconds(std::max<int64_t>(0, (waitNs + 999) / 1000)));
}

void TimerFloor::tick(Ticker* t) {
    const int64_t nowNs = android::elapsedRealtimeNano();
    for (; t->dueNs(t->next) <= nowNs; ++t->next) {
        const int64_t dueNs = t->dueNs(t->next);
        const host::emulated::SampleGenerator::Sample& made = t->generator->next({}, dueNs);
        auto raw = [&made](size_t i) {
            return i < made.size() ? static_cast<float>((made.begin() + i)->second) : 0.0f;
        };
        const Sample s{t->stream.device, dueNs, raw(0), raw(1), raw(2)};
        t->floor->mSent->add(s.handle, s.timestampNs, android::elapsedRealtimeNano());
        t->floor->mHandOff.task_runner()->PostTask(
            FROM_HERE, base::BindOnce(&TimerFloor::deliver, base::Unretained(t->floor), s));
    }
    schedule(t);
}

void TimerFloor::deliver(Sample s) {
    mEvents.resize(1);
    Event& event = mEvents[0];
    std::memset(&event.u, 0, sizeof(event.u));
    event.timestamp = s.timestampNs;
    event.sensorHandle = s.handle;
    event.sensorType = SensorType::ACCELEROMETER;
    event.u.vec3.x = s.x;
    event.u.vec3.y = s.y;
    event.u.vec3.z = s.z;
    mProxy->postEvents(mEvents, mProxy->createScopedWakelock(false));
}

}  // namespace kelvane::bench
