#include "check/RuleCatalogue.h"

namespace kelvane::tools::check {

const std::vector<RuleInfo>& ruleCatalogue() {
    static const std::vector<RuleInfo> kRules = {
        {rules::kListPublished, "SensorListValid", "the sub-HAL publishes at least one sensor"},
        {rules::kListName, "SensorListValid", "name is not empty"},
        {rules::kListNameUnique, "SensorListValid",
         "no other sensor of the same type has the name"},
        {rules::kListVendor, "SensorListValid", "vendor is not empty"},
        {rules::kListType, "SensorListValid", "type is neither META_DATA nor ADDITIONAL_INFO"},
        {rules::kListTypeString, "SensorListValid",
         "typeAsString is empty or the official string; non-empty for private types"},
        {rules::kListPower, "SensorListValid", "power >= 0"},
        {rules::kListMaxRange, "SensorListValid", "maxRange > 0"},
        {rules::kListFifo, "SensorListValid", "fifoMaxEventCount >= fifoReservedEventCount"},
        {rules::kListReportingMode, "SensorListValid", "the reporting mode is the type's"},
        {rules::kListDelays, "SensorListValid", "minDelay and maxDelay fit the reporting mode"},
        {rules::kProxyHandleTopByte, "proxy", "the handle's top byte is 0, so the proxy keeps it"},
        {rules::kCommandsInvalidHandle, "Activate, Batch, FlushNonexistentSensor",
         "activate, batch and flush answer BAD_VALUE for the largest handle + 42"},
        {rules::kCommandsActivateTwice, "Activate",
         "activate(true) and activate(false) twice answer OK"},
        {rules::kCommandsBatch, "Batch",
         "batch(minDelay, 0) inactive and batch(maxDelay, 0) active answer OK"},
        {rules::kCommandsBatchClamp, "Batch", "a too short period is clamped to minDelay"},
        {rules::kCommandsFlush, "FlushSensor",
         "1 and 5 flushes of an active sensor give exactly 1 and 5 completions within 1 s"},
        {rules::kCommandsFlushInactive, "FlushInactiveSensor",
         "flush of an inactive sensor answers BAD_VALUE with no completion"},
        {rules::kCommandsOperationMode, "SetOperationMode",
         "DATA_INJECTION without an injection sensor answers BAD_VALUE"},
        {rules::kCommandsDirectChannel, "DirectChannel*",
         "direct channels answer INVALID_OPERATION (register with channel -1)"},
        {rules::kCommandsInitializeTwice, "CallInitializeTwice",
         "after initialize twice, events reach only the newest callback"},
        {rules::kCommandsInitializeCleanup, "CleanupConnectionsOnInitialize",
         "after a re-initialize no events arrive until sensors are activated again"},
        {rules::kStreamCommands, "*StreamingOperation*",
         "batch, activate and deactivate answer OK"},
        {rules::kStreamCount, "*StreamingOperation*", "at least half of duration / period events"},
        {rules::kStreamHandle, "*StreamingOperation*",
         "events of the tested type carry the sensor's handle, and its events its type"},
        {rules::kStreamMeta, "*StreamingOperation*",
         "events of sensors not under test are meta events"},
        {rules::kStreamNorm, "*StreamingOperation*",
         "at rest: accelerometer norm 9.80665 +- 1.0 m/s^2, gyroscope norm 0 +- 0.1 rad/s"},
        {rules::kStreamHotSwitch, "*SamplingPeriodHotSwitchOperation",
         "switching between minDelay and maxDelay, each average interval within 10 %"},
        {rules::kStreamNoStale, "NoStaleEvents",
         "after deactivate, 1 s and reactivate, the first timestamp is >= 500 ms + 3 x minDelay "
         "after the last old one"},
        {rules::kStreamTimestamps, "direct report checks",
         "timestamps of one sensor strictly increase over the whole run"},
        {rules::kCtsMinDelay, "SensorParameterRangeTest",
         "minDelay <= 10,000 us (accelerometer, gyroscope), <= 100,000 us (magnetometer)"},
        {rules::kCtsResolution, "SensorParameterRangeTest",
         "resolution between 2.001 maxRange / 2^24 and 2.001 maxRange / 2^12 (accelerometer, "
         "gyroscope), up to 0.6 uT (magnetometer)"},
        {rules::kCtsOrdering, "EventOrderingVerification",
         "each timestamp is later than every earlier one of the sensor"},
        {rules::kCtsFrequency, "FrequencyVerification",
         "0.9 f < (N - 1) / (t_last - t_first) < 2.2 f at the expected period"},
        {rules::kCtsGaps, "EventGapVerification",
         "intervals > 1.8 P after event 0: at most ceil(min(20, 0.02 N))"},
        {rules::kCtsJitter, "JitterVerification",
         "2.5th to 97.5th percentile spread of the intervals <= 4 % of P (enforced with --hifi)"},
        {rules::kCtsTimestampFuture, "EventTimestampSynchronizationVerification",
         "no event timestamp is after its receive time on the boot-time clock"},
        {rules::kCtsTimestampAge, "EventTimestampSynchronizationVerification",
         "receive time - timestamp <= 1 s + 1.1 R + 2.5 P / 0.9"},
        {rules::kCtsMagnitude, "MagnitudeVerification",
         "at rest, mean norm 9.80665 +- 1.5 m/s^2 (accelerometer), <= 1.5 rad/s (gyroscope)"},
        {rules::kCtsStdDev, "StandardDeviationVerification",
         "at rest, per-axis sigma <= 1.0 m/s^2 / 0.5 rad/s (high fidelity: tighter, and the "
         "magnetometer's <= 2 uT)"},
        {rules::kCtsInitialValue, "InitialValueVerification",
         "an event within the first 2 s of the stream and one after"},
        {rules::kCtsEventCount, "SensorBatchingTests",
         "without a FIFO, N >= 0.8 (T - max(1 s, 0.4 s + 2 Pmax) - 1 s) / P"},
        {rules::kCtsFlush, "SensorBatchingTests (flush)",
         "one flush of an active sensor gives exactly one completion within 10 s"},
        {rules::kProxyWakelock, "proxy",
         "every post holds the wake lock exactly when it has a wake-up sensor's event"},
    };
    return kRules;
}

const RuleInfo* findRule(const std::string& id) {
    for (const RuleInfo& rule : ruleCatalogue()) {
        if (id == rule.id.c_str()) return &rule;
    }
    return nullptr;
}

size_t ruleOrder(const std::string& id) {
    const auto& rules = ruleCatalogue();
    for (size_t i = 0; i < rules.size(); ++i) {
        if (id == rules[i].id.c_str()) return i;
    }
    return rules.size();
}

std::string ruleGroup(const std::string& id) { return id.substr(0, id.find('.')); }

}  // namespace kelvane::tools::check
