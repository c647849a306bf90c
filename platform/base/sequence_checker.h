// Checks that an object not meant to be shared is used on one sequence only: it binds to the first
// sequence that calls it (or the next one after a detach). Every sequence of this stand-in runs on
// one thread, so a sequence is known by its thread.
//
//   class Reader {
//     ...
//     void read() { DCHECK_CALLED_ON_VALID_SEQUENCE(mSequence); ... }
//     SEQUENCE_CHECKER(mSequence);
//   };
//
// CalledOnValidSequence() and DetachFromSequence() may be called on any thread.
#pragma once

#include <atomic>
#include <thread>

#include "base/logging.h"

namespace base {

class SequenceChecker {
  public:
    SequenceChecker() = default;
    SequenceChecker(const SequenceChecker&) = delete;
    SequenceChecker& operator=(const SequenceChecker&) = delete;

    // True on the bound sequence; binds to the caller's if detached.
    bool CalledOnValidSequence() const {
        const std::thread::id self = std::this_thread::get_id();
        std::thread::id bound = mBound.load(std::memory_order_relaxed);
        if (bound == self) return true;
        if (bound != std::thread::id()) return false;
        // Detached: the first caller wins; a loser is on another sequence (or is the winner).
        if (mBound.compare_exchange_strong(bound, self, std::memory_order_relaxed)) return true;
        return bound == self;
    }
    // The next caller binds it, e.g. once an object built on one thread moves to its own.
    void DetachFromSequence() { mBound.store(std::thread::id(), std::memory_order_relaxed); }

  private:
    mutable std::atomic<std::thread::id> mBound{};
};

}  // namespace base

#define SEQUENCE_CHECKER(name) ::base::SequenceChecker name
#define DCHECK_CALLED_ON_VALID_SEQUENCE(name) \
    CHECK((name).CalledOnValidSequence()) << "called off the sequence of " #name ". "
#define DETACH_FROM_SEQUENCE(name) (name).DetachFromSequence()
