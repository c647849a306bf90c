// Records what a host served a client, backend-independent, and writes it as a host description
// that replays it: the devices as the client asked for them (types, channels, attributes,
// frequency answers, failed channels), every sample with its send time, and what the host did by
// itself (observer errors, lost device pipes, a closed service) as timeline entries. Times count
// from the first SetUpChannel that went through the recorder.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/containers/flat_map.h"
#include "base/synchronization/lock.h"
#include "base/time/time.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "host/common/HostConnection.h"
#include "host/description/HostConfig.h"

namespace kelvane::host::common {

class RecordingTap;

// Thread-safe: the taps report from the host thread, the description is read from any thread.
class Recorder {
  public:
    // `timestampsOnThisClock`: the host stamps samples on this machine's boot-time clock (every
    // host but a remote board), so the recording says when it started on that clock.
    explicit Recorder(bool timestampsOnThisClock = true);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Host thread, where *service was bound: puts a tap between the client and the service that
    // is about to be handed to it, so *service becomes the tap's pipe. The tap forwards every
    // call, reply, sample and close both ways until it is destroyed, on that same thread.
    std::unique_ptr<RecordingTap> interpose(chromeos::sensors::mojom::SensorServicePtr* service);

    // For Host::setServiceInterposer: a tap of this recorder on every service the host hands out.
    HostConnection::ServiceInterposer interposer();

    // Forgets the samples and timeline entries kept so far and counts times from now on, keeping
    // what the devices are (types, channels, attributes, frequency answers). Records again if
    // paused. For a recording started on demand, while the host runs.
    void startOver();
    // Keeps no more samples or timeline entries until startOver(); what the devices are is still
    // followed, and description() still holds what was kept before.
    void pause();
    bool paused() const;

    // The recording so far, as a host description: devices in id order, a copy of every sample.
    description::HostConfig description() const;
    // Writes description() to `path` through the description writer. On failure returns false
    // and sets *error to one line.
    bool write(const std::string& path, std::string* error) const;

    // What the taps report.
    void listed(const base::flat_map<int32_t, std::vector<int32_t>>& devices);
    void listedType(int32_t type, const std::vector<int32_t>& ids);
    void opened(int32_t device);
    void channelsAsked(int32_t device);
    void channels(int32_t device, const std::vector<std::string>& ids);
    void attributesAsked(int32_t device);
    void attributes(int32_t device, const std::vector<std::string>& names,
                    const std::vector<base::Optional<std::string>>& values);
    void frequency(int32_t device, double requested, double answered);
    void channelsEnabled(int32_t device, bool enable, const std::vector<int32_t>& failed);
    // A new observer for `device`; returns its serial for sample().
    uint64_t observerStarted(int32_t device);
    void sample(int32_t device, uint64_t observer, const base::flat_map<int32_t, int64_t>& sample);
    void observerError(int32_t device, int32_t type);
    void deviceLost(int32_t device);
    void serviceClosed(uint32_t reason, const std::string& description);

  private:
    struct Device {
        description::VirtualDevice served;  // id, types, channels, attributes, frequency answers
        std::set<int32_t> failChannels;     // every channel ever reported failed to enable
        bool channelsPending = false;       // asked, not answered yet
        bool attributesPending = false;     // asked, not answered yet
        bool lost = false;
        description::TimedSamples
            samples;                // columns: every channel any sample held, in index order
        uint64_t lastObserver = 0;  // the observer of the last sample
    };

    int64_t nowUsLocked() const REQUIRES(mLock);
    Device& deviceLocked(int32_t id) REQUIRES(mLock);
    // Appends a timeline entry stamped now unless paused. The fields past `action` are those
    // TimelineEvent keeps for it.
    void addTimelineEventLocked(description::TimelineAction action, int32_t device,
                                int32_t error = 0, uint32_t reason = 0,
                                const std::string& description = {}) REQUIRES(mLock);

    mutable base::Lock mLock;
    const bool mTimestampsOnThisClock;
    std::optional<base::TimeTicks> mStart GUARDED_BY(mLock);  // the first interpose()
    int64_t mStartBootTimeNs GUARDED_BY(mLock) = 0;           // mStart on the boot-time clock
    std::map<int32_t, Device> mDevices GUARDED_BY(mLock);
    std::vector<description::TimelineEvent> mTimeline GUARDED_BY(mLock);
    uint64_t mObservers GUARDED_BY(mLock) = 0;  // serials handed out
    bool mPaused GUARDED_BY(mLock) = false;
};

}  // namespace kelvane::host::common
