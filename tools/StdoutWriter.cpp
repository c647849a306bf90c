#include "StdoutWriter.h"

#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace kelvane::tools {

namespace {

constexpr std::chrono::milliseconds kPollInterval{100};
constexpr std::chrono::seconds kSlowAfter{1};

// A pipe, socket or terminal may block a write larger than what poll() promised; a file never.
size_t chunkBytes(int fd) {
    struct stat st = {};
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) return size_t{1} << 20;
    return PIPE_BUF;
}

size_t countLines(const char* begin, const char* end) {
    return static_cast<size_t>(std::count(begin, end, '\n'));
}

}  // namespace

StdoutWriter::StdoutWriter(int fd, size_t capBytes)
    : mFd(fd), mCapBytes(capBytes), mChunkBytes(chunkBytes(fd)) {
    mThread = std::thread([this] { run(); });
}

StdoutWriter::~StdoutWriter() {
    mAbandoned.store(true);
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mClosing = true;
    }
    mChanged.notify_all();
    mThread.join();
}

bool StdoutWriter::append(const std::string& line) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mError != 0) return false;
        if (mUnwrittenBytes + line.size() > mCapBytes) {
            ++mDropped;
            return false;
        }
        const bool wasEmpty = mQueued.empty();
        if (wasEmpty || mQueued.back().size() + line.size() > kBlockBytes) {
            mQueued.emplace_back().reserve(std::max(kBlockBytes, line.size()));
        }
        mQueued.back() += line;
        mUnwrittenBytes += line.size();
        ++mQueuedLines;
        if (!wasEmpty) return true;  // the thread was woken for what is queued already
    }
    mChanged.notify_all();
    return true;
}

StdoutWriter::Drained StdoutWriter::drain(const std::function<bool()>& giveUp,
                                          const std::function<void(size_t)>& slow) {
    const auto slowAt = std::chrono::steady_clock::now() + kSlowAfter;
    bool told = false;
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        const bool done = mChanged.wait_for(lock, kPollInterval, [this] {
            return mError != 0 || (mQueued.empty() && mInFlightLines == 0);
        });
        if (mError != 0) return Drained::kWriteFailed;
        if (done) return Drained::kAll;
        if (!told && std::chrono::steady_clock::now() >= slowAt) {
            told = true;
            const size_t lines = mQueuedLines + mInFlightLines;
            lock.unlock();
            slow(lines);
            lock.lock();
        }
        if (giveUp()) {
            mAbandoned.store(true);
            return Drained::kGaveUp;
        }
    }
}

int StdoutWriter::failed() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mError;
}

uint64_t StdoutWriter::dropped() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mDropped;
}

size_t StdoutWriter::unwritten() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mQueuedLines + mInFlightLines;
}

void StdoutWriter::run() {
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        mChanged.wait(lock, [this] { return !mQueued.empty() || mClosing; });
        if (mQueued.empty() || mAbandoned.load()) return;
        const std::string text = std::move(mQueued.front());
        mQueued.pop_front();
        mInFlightLines = countLines(text.data(), text.data() + text.size());
        mQueuedLines -= mInFlightLines;
        lock.unlock();

        int error = 0;
        const size_t written = writeOut(text, &error);

        lock.lock();
        mUnwrittenBytes -= written;
        mInFlightLines = countLines(text.data() + written, text.data() + text.size());
        if (error != 0) mError = error;
        if ((mInFlightLines == 0 && mQueued.empty()) || error != 0) mChanged.notify_all();
        if (error != 0 || mAbandoned.load()) return;
    }
}

size_t StdoutWriter::writeOut(const std::string& text, int* error) {
    size_t done = 0;
    while (done < text.size() && !mAbandoned.load()) {
        pollfd fd = {mFd, POLLOUT, 0};
        const int ready = poll(&fd, 1, static_cast<int>(kPollInterval.count()));
        if (ready < 0 && errno != EINTR) {
            *error = errno;
            return done;
        }
        if (ready <= 0) continue;
        const ssize_t n = write(mFd, text.data() + done, std::min(mChunkBytes, text.size() - done));
        if (n >= 0) {
            done += static_cast<size_t>(n);
        } else if (errno != EINTR && errno != EAGAIN) {
            *error = errno;
            return done;
        }
    }
    return done;
}

}  // namespace kelvane::tools
