#include "bench/timer_floor.h"

#include <sys/prctl.h>
#include <utils/SystemClock.h>

#include <algorithm>
#include <cstring>

#include "base/bind.h"
#include "base/location.h"

namespace kelvane::bench {

using android::hardware::sensors::V2_1::SensorType;

TimerFloor::TimerFloor(const std::vector<Stream>& streams, CountingProxyCallback* proxy,
                       SampleTimeLog* sent)
    : mProxy(proxy), mSent(sent), mTimer("floor-timer"), mHandOff("floor-handoff") {
    mTimer.Start();
    mHandOff.Start();
    mTimer.task_runner()->PostTask(
        FROM_HERE, base::BindOnce([] { prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL); }));
    // Streams start a fraction of the fastest period apart, so that no two ticks coincide
    // and every sample costs its own wake-ups, as samples of separate devices do.
    double fastest = 0;
    for (const Stream& s : streams) fastest = std::max(fastest, s.hz);
    const base::TimeTicks now = base::TimeTicks::Now();
    const int64_t nowNs = android::elapsedRealtimeNano();
    for (size_t i = 0; i < streams.size(); ++i) {
        const double offset = static_cast<double>(i) / (fastest * streams.size());
        mTickers.push_back(Ticker{this, streams[i], now + base::TimeDelta::FromSecondsD(offset),
                                  nowNs + static_cast<int64_t>(offset * 1e9), 0});
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
    const base::TimeTicks due =
        t->start + base::TimeDelta::FromSecondsD(static_cast<double>(t->next) / t->stream.hz);
    t->floor->mTimer.task_runner()->PostDelayedTask(FROM_HERE, base::BindOnce(&TimerFloor::tick, t),
                                                    due - base::TimeTicks::Now());
}

void TimerFloor::tick(Ticker* t) {
    const double elapsed = (base::TimeTicks::Now() - t->start).InSecondsF();
    const uint64_t due = static_cast<uint64_t>(std::max(0.0, elapsed * t->stream.hz)) + 1;
    const int64_t nowNs = android::elapsedRealtimeNano();
    for (; t->next < due; ++t->next) {
        const int64_t dueNs =
            t->startNs + static_cast<int64_t>(static_cast<double>(t->next) * 1e9 / t->stream.hz);
        const Sample s{t->stream.device, std::min(dueNs, nowNs), static_cast<float>(t->next)};
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
    event.u.vec3.x = s.value;
    mProxy->postEvents(mEvents, mProxy->createScopedWakelock(false));
}

}  // namespace kelvane::bench
