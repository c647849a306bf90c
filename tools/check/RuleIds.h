// Every rule id as a constant: results and rule files name a rule only through these, so a
// misspelled id does not compile (RuleId has no implicit conversion from text).
#pragma once

#include <string>

namespace kelvane::tools::check {

class RuleId {
  public:
    constexpr explicit RuleId(const char* id) : mId(id) {}
    constexpr const char* c_str() const { return mId; }
    std::string str() const { return mId; }
    bool operator==(const RuleId& other) const { return str() == other.str(); }

  private:
    const char* mId;  // "<group>.<name>", a literal
};

namespace rules {

inline constexpr RuleId kListPublished{"list.published"};
inline constexpr RuleId kListName{"list.name"};
inline constexpr RuleId kListNameUnique{"list.name-unique"};
inline constexpr RuleId kListVendor{"list.vendor"};
inline constexpr RuleId kListType{"list.type"};
inline constexpr RuleId kListTypeString{"list.type-string"};
inline constexpr RuleId kListPower{"list.power"};
inline constexpr RuleId kListMaxRange{"list.max-range"};
inline constexpr RuleId kListFifo{"list.fifo"};
inline constexpr RuleId kListReportingMode{"list.reporting-mode"};
inline constexpr RuleId kListDelays{"list.delays"};
inline constexpr RuleId kProxyHandleTopByte{"proxy.handle-top-byte"};
inline constexpr RuleId kCommandsInvalidHandle{"commands.invalid-handle"};
inline constexpr RuleId kCommandsActivateTwice{"commands.activate-twice"};
inline constexpr RuleId kCommandsBatch{"commands.batch"};
inline constexpr RuleId kCommandsBatchClamp{"commands.batch-clamp"};
inline constexpr RuleId kCommandsFlush{"commands.flush"};
inline constexpr RuleId kCommandsFlushInactive{"commands.flush-inactive"};
inline constexpr RuleId kCommandsOperationMode{"commands.operation-mode"};
inline constexpr RuleId kCommandsDirectChannel{"commands.direct-channel"};
inline constexpr RuleId kCommandsInitializeTwice{"commands.initialize-twice"};
inline constexpr RuleId kCommandsInitializeCleanup{"commands.initialize-cleanup"};
inline constexpr RuleId kStreamCommands{"stream.commands"};
inline constexpr RuleId kStreamCount{"stream.count"};
inline constexpr RuleId kStreamHandle{"stream.handle"};
inline constexpr RuleId kStreamMeta{"stream.meta"};
inline constexpr RuleId kStreamNorm{"stream.norm"};
inline constexpr RuleId kStreamHotSwitch{"stream.hot-switch"};
inline constexpr RuleId kStreamNoStale{"stream.no-stale"};
inline constexpr RuleId kStreamTimestamps{"stream.timestamps"};
inline constexpr RuleId kCtsMinDelay{"cts.min-delay"};
inline constexpr RuleId kCtsResolution{"cts.resolution"};
inline constexpr RuleId kCtsOrdering{"cts.ordering"};
inline constexpr RuleId kCtsFrequency{"cts.frequency"};
inline constexpr RuleId kCtsGaps{"cts.gaps"};
inline constexpr RuleId kCtsJitter{"cts.jitter"};
inline constexpr RuleId kCtsTimestampFuture{"cts.timestamp-future"};
inline constexpr RuleId kCtsTimestampAge{"cts.timestamp-age"};
inline constexpr RuleId kCtsMagnitude{"cts.magnitude"};
inline constexpr RuleId kCtsStdDev{"cts.std-dev"};
inline constexpr RuleId kCtsInitialValue{"cts.initial-value"};
inline constexpr RuleId kCtsEventCount{"cts.event-count"};
inline constexpr RuleId kCtsFlush{"cts.flush"};
inline constexpr RuleId kProxyWakelock{"proxy.wakelock"};

}  // namespace rules

}  // namespace kelvane::tools::check
