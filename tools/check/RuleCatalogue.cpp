#include "check/RuleCatalogue.h"

namespace kelvane::tools::check {

const std::vector<RuleInfo>& ruleCatalogue() {
    static const std::vector<RuleInfo> kRules = {
        {"list.published", "SensorListValid", "the sub-HAL publishes at least one sensor"},
        {"list.name", "SensorListValid", "name is not empty"},
        {"list.name-unique", "SensorListValid", "no other sensor of the same type has the name"},
        {"list.vendor", "SensorListValid", "vendor is not empty"},
        {"list.type", "SensorListValid", "type is neither META_DATA nor ADDITIONAL_INFO"},
        {"list.type-string", "SensorListValid",
         "typeAsString is empty or the official string; non-empty for private types"},
        {"list.power", "SensorListValid", "power >= 0"},
        {"list.max-range", "SensorListValid", "maxRange > 0"},
        {"list.fifo", "SensorListValid", "fifoMaxEventCount >= fifoReservedEventCount"},
        {"list.reporting-mode", "SensorListValid", "the reporting mode is the type's"},
        {"list.delays", "SensorListValid", "minDelay and maxDelay fit the reporting mode"},
        {"proxy.handle-top-byte", "proxy", "the handle's top byte is 0, so the proxy keeps it"},
        {"commands.invalid-handle", "Activate, Batch, FlushNonexistentSensor",
         "activate, batch and flush answer BAD_VALUE for the largest handle + 42"},
        {"commands.activate-twice", "Activate",
         "activate(true) and activate(false) twice answer OK"},
        {"commands.batch", "Batch",
         "batch(minDelay, 0) inactive and batch(maxDelay, 0) active answer OK"},
        {"commands.batch-clamp", "Batch", "a too short period is clamped to minDelay"},
        {"commands.flush", "FlushSensor",
         "1 and 5 flushes of an active sensor give exactly 1 and 5 completions within 1 s"},
        {"commands.flush-inactive", "FlushInactiveSensor",
         "flush of an inactive sensor answers BAD_VALUE with no completion"},
        {"commands.operation-mode", "SetOperationMode",
         "DATA_INJECTION without an injection sensor answers BAD_VALUE"},
        {"commands.direct-channel", "DirectChannel*",
         "direct channels answer INVALID_OPERATION (register with channel -1)"},
        {"commands.initialize-twice", "CallInitializeTwice",
         "after initialize twice, events reach only the newest callback"},
        {"commands.initialize-cleanup", "CleanupConnectionsOnInitialize",
         "after a re-initialize no events arrive until sensors are activated again"},
        {"stream.commands", "*StreamingOperation*", "batch, activate and deactivate answer OK"},
        {"stream.count", "*StreamingOperation*", "at least half of duration / period events"},
        {"stream.handle", "*StreamingOperation*",
         "events of the tested type carry the sensor's handle, and its events its type"},
        {"stream.meta", "*StreamingOperation*", "events of sensors not under test are meta events"},
        {"stream.norm", "*StreamingOperation*",
         "at rest: accelerometer norm 9.80665 +- 1.0 m/s^2, gyroscope norm 0 +- 0.1 rad/s"},
        {"stream.hot-switch", "*SamplingPeriodHotSwitchOperation",
         "switching between minDelay and maxDelay, each average interval within 10 %"},
        {"stream.no-stale", "NoStaleEvents",
         "after deactivate, 1 s and reactivate, the first timestamp is >= 500 ms + 3 x minDelay "
         "after the last old one"},
        {"stream.timestamps", "direct report checks",
         "timestamps of one sensor strictly increase over the whole run"},
        {"cts.min-delay", "SensorParameterRangeTest",
         "minDelay <= 10,000 us (accelerometer, gyroscope), <= 100,000 us (magnetometer)"},
        {"cts.resolution", "SensorParameterRangeTest",
         "resolution between 2.001 maxRange / 2^24 and 2.001 maxRange / 2^12 (accelerometer, "
         "gyroscope), up to 0.6 uT (magnetometer)"},
        {"cts.ordering", "EventOrderingVerification",
         "each timestamp is later than every earlier one of the sensor"},
        {"cts.frequency", "FrequencyVerification",
         "0.9 f < (N - 1) / (t_last - t_first) < 2.2 f at the expected period"},
        {"cts.gaps", "EventGapVerification",
         "intervals > 1.8 P after event 0: at most ceil(min(20, 0.02 N))"},
        {"cts.jitter", "JitterVerification",
         "2.5th to 97.5th percentile spread of the intervals <= 4 % of P (enforced with --hifi)"},
        {"cts.timestamp-future", "EventTimestampSynchronizationVerification",
         "no event timestamp is after its receive time on the boot-time clock"},
        {"cts.timestamp-age", "EventTimestampSynchronizationVerification",
         "receive time - timestamp <= 1 s + 1.1 R + 2.5 P / 0.9"},
        {"cts.magnitude", "MagnitudeVerification",
         "at rest, mean norm 9.80665 +- 1.5 m/s^2 (accelerometer), <= 1.5 rad/s (gyroscope)"},
        {"cts.std-dev", "StandardDeviationVerification",
         "at rest, per-axis sigma <= 1.0 m/s^2 / 0.5 rad/s (high fidelity: tighter, and the "
         "magnetometer's <= 2 uT)"},
        {"cts.initial-value", "InitialValueVerification",
         "an event within the first 2 s of the stream and one after"},
        {"cts.event-count", "SensorBatchingTests",
         "without a FIFO, N >= 0.8 (T - max(1 s, 0.4 s + 2 Pmax) - 1 s) / P"},
        {"cts.flush", "SensorBatchingTests (flush)",
         "one flush of an active sensor gives exactly one completion within 10 s"},
        {"proxy.wakelock", "proxy",
         "every post holds the wake lock exactly when it has a wake-up sensor's event"},
    };
    return kRules;
}

const RuleInfo* findRule(const std::string& id) {
    for (const RuleInfo& rule : ruleCatalogue()) {
        if (id == rule.id) return &rule;
    }
    return nullptr;
}

size_t ruleOrder(const std::string& id) {
    const auto& rules = ruleCatalogue();
    for (size_t i = 0; i < rules.size(); ++i) {
        if (id == rules[i].id) return i;
    }
    return rules.size();
}

std::string ruleGroup(const std::string& id) { return id.substr(0, id.find('.')); }

}  // namespace kelvane::tools::check
