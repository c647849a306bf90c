// Symbol visibility for the platform libraries. Classes and functions marked ANDROID_API keep
// default visibility even when a user of the headers builds with -fvisibility=hidden, so their
// vtables, type info and out-of-line members resolve to the one copy in the platform library.
#pragma once

#ifndef ANDROID_API
#define ANDROID_API __attribute__((visibility("default")))
#endif
