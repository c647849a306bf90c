// How a host description spells each of its enumerations: one table per enumeration, read by
// DescriptionReader and written by DescriptionWriter. A value missing from its table (kNone,
// kNever) is never written: it is the default a description leaves out.
#pragma once

#include <cstddef>

#include "host/description/HostConfig.h"

namespace kelvane::host::description {

template <typename Enum>
struct Spelling {
    Enum value;
    const char* name;
};

inline constexpr Spelling<Stall> kStallNames[] = {
    {Stall::kDevice, "device"}, {Stall::kChannels, "channels"}, {Stall::kAttributes, "attributes"}};

inline constexpr Spelling<CloseAt> kCloseAtNames[] = {
    {CloseAt::kOnGetDevice, "getDevice"},
    {CloseAt::kOnChannels, "channels"},
    {CloseAt::kOnAttributes, "attributes"},
    {CloseAt::kAfterAttributes, "afterAttributes"}};

inline constexpr Spelling<TimelineAction> kActionNames[] = {
    {TimelineAction::kObserverError, "observerError"},
    {TimelineAction::kCloseDevice, "closeDevice"},
    {TimelineAction::kCloseService, "closeService"},
    {TimelineAction::kTabletMode, "tabletMode"}};

inline constexpr Spelling<TimestampClock> kClockNames[] = {
    {TimestampClock::kBoottime, "boottime"},
    {TimestampClock::kRealtime, "realtime"},
    {TimestampClock::kMonotonic, "monotonic"}};

// The name of `value` in `names`; null if it has none.
template <typename Enum, size_t N>
constexpr const char* spellingOf(const Spelling<Enum> (&names)[N], Enum value) {
    for (const Spelling<Enum>& spelling : names) {
        if (spelling.value == value) return spelling.name;
    }
    return nullptr;
}

}  // namespace kelvane::host::description
