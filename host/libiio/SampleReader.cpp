#include "host/libiio/SampleReader.h"

#include <time.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "host/libiio/IioDeviceInfo.h"
#include "host/libiio/IioNumbers.h"

namespace kelvane::host::iio {

namespace {

int64_t bootTimeNs() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// One element already converted by libiio (byte order, shift, bits and sign applied), read at its
// storage width; repeated elements give their first value.
int64_t elementValue(const iio_data_format* format, const uint8_t* converted) {
    switch (format->length / 8) {
        case 1: {
            uint8_t v = converted[0];
            return format->is_signed ? static_cast<int8_t>(v) : v;
        }
        case 2: {
            uint16_t v;
            std::memcpy(&v, converted, sizeof(v));
            return format->is_signed ? static_cast<int16_t>(v) : v;
        }
        case 4: {
            uint32_t v;
            std::memcpy(&v, converted, sizeof(v));
            return format->is_signed ? static_cast<int32_t>(v) : static_cast<int64_t>(v);
        }
        default: {
            uint64_t v;
            std::memcpy(&v, converted, sizeof(v));
            return static_cast<int64_t>(v);
        }
    }
}

// Where one enabled channel's element lies in each scan of the buffer.
struct Slot {
    int32_t index;
    const iio_channel* channel;
    const iio_data_format* format;
    ptrdiff_t offset;  // within a scan
};

// The samples of the scans a refill left in `buffer`, `step` bytes apart; places each slot first.
std::vector<Sample> decodeScans(iio_buffer* buffer, ptrdiff_t step, std::vector<Slot>& slots) {
    const auto* start = static_cast<const uint8_t*>(iio_buffer_start(buffer));
    const auto* end = static_cast<const uint8_t*>(iio_buffer_end(buffer));
    for (Slot& slot : slots) {
        slot.offset = static_cast<const uint8_t*>(iio_buffer_first(buffer, slot.channel)) - start;
    }
    std::vector<Sample> samples;
    samples.reserve(static_cast<size_t>((end - start) / step));
    uint8_t converted[16];
    for (const uint8_t* scan = start; scan + step <= end; scan += step) {
        std::vector<std::pair<int32_t, int64_t>> values;
        values.reserve(slots.size());
        for (const Slot& slot : slots) {
            if (slot.format->length / 8 > sizeof(converted)) continue;
            iio_channel_convert(slot.channel, converted, scan + slot.offset);
            values.emplace_back(slot.index, elementValue(slot.format, converted));
        }
        samples.emplace_back(std::move(values));
    }
    return samples;
}

std::optional<int64_t> polledValue(const iio_channel* channel) {
    std::optional<std::string> text = readChannelAttribute(channel, "raw");
    if (!text) text = readChannelAttribute(channel, "input");
    if (!text) return std::nullopt;
    std::optional<double> value = parseNumber(*text);
    if (!value) return std::nullopt;
    return std::llround(*value);
}

}  // namespace

SampleReader::SampleReader(const iio_device* device, std::vector<Channel> channels, Deliver deliver,
                           Fail fail)
    : mDevice(device),
      mChannels(std::move(channels)),
      mDeliver(std::move(deliver)),
      mFail(std::move(fail)) {}

std::unique_ptr<SampleReader> SampleReader::startBuffered(iio_device* device,
                                                          const std::vector<Channel>& channels,
                                                          size_t scansPerRead, Deliver deliver,
                                                          Fail fail, int* error) {
    const unsigned int count = iio_device_get_channels_count(device);
    for (unsigned int i = 0; i < count; ++i) iio_channel_disable(iio_device_get_channel(device, i));
    for (const Channel& c : channels) iio_channel_enable(c.channel);
    iio_buffer* buffer = iio_device_create_buffer(device, scansPerRead, false);
    if (buffer == nullptr) {
        *error = errno ? errno : EIO;
        return nullptr;
    }
    std::unique_ptr<SampleReader> reader(
        new SampleReader(device, channels, std::move(deliver), std::move(fail)));
    reader->mBuffer = buffer;
    reader->mScansPerRead = scansPerRead;
    // Every context but this machine's reads through iiod (network, USB, serial).
    const char* backend = iio_context_get_name(iio_device_get_context(device));
    reader->mServedByIiod = backend == nullptr || std::strcmp(backend, "local") != 0;
    reader->mThread = std::thread(&SampleReader::readBuffer, reader.get());
    return reader;
}

std::unique_ptr<SampleReader> SampleReader::startPolled(const iio_device* device,
                                                        std::vector<Channel> channels, double hz,
                                                        Deliver deliver, Fail fail) {
    std::unique_ptr<SampleReader> reader(
        new SampleReader(device, std::move(channels), std::move(deliver), std::move(fail)));
    reader->mThread = std::thread(&SampleReader::poll, reader.get(), hz);
    return reader;
}

SampleReader::~SampleReader() {
    {
        // Under the lock: the reader thread may be putting a new buffer in place.
        base::AutoLock hold(mLock);
        mStop.store(true, std::memory_order_release);
        mWake.Broadcast();
        if (mBuffer != nullptr) iio_buffer_cancel(mBuffer);
    }
    if (mThread.joinable()) mThread.join();
    if (mBuffer != nullptr) iio_buffer_destroy(mBuffer);
}

bool SampleReader::reopenBuffer(int* error) {
    base::AutoLock hold(mLock);
    if (stopping()) return true;  // the read loop ends at its next look
    iio_buffer_destroy(mBuffer);
    errno = 0;
    mBuffer = iio_device_create_buffer(mDevice, mScansPerRead, false);
    if (mBuffer != nullptr) return true;
    *error = errno != 0 ? errno : EIO;
    return false;
}

bool SampleReader::deviceGone() const {
    // A device that went away has lost its attributes too; a silent one still answers.
    if (iio_device_get_attrs_count(mDevice) == 0) return false;
    char text[256];
    const ssize_t result =
        iio_device_attr_read(mDevice, iio_device_get_attr(mDevice, 0), text, sizeof(text));
    return result == -ENOENT || result == -ENODEV || result == -ENXIO;
}

void SampleReader::readBuffer() {
    std::vector<Slot> slots;
    for (const Channel& c : mChannels) {
        slots.push_back({c.index, c.channel, iio_channel_get_data_format(c.channel), 0});
    }
    while (!stopping()) {
        const ssize_t result = iio_buffer_refill(mBuffer);
        if (stopping()) return;
        if (result == -ETIMEDOUT || result == -EAGAIN || result == -EINTR) {
            if (deviceGone()) {
                mFail(ENODEV);
                return;
            }
            if (result == -ETIMEDOUT) {
                mFail(ETIMEDOUT);
                // iiod closes a device whose read failed, a time-out included, and answers every
                // read after it with EBADF: a new buffer opens the device again.
                int error = 0;
                if (mServedByIiod && !reopenBuffer(&error)) {
                    mFail(error);
                    return;
                }
            }
            continue;
        }
        if (result <= 0) {
            mFail(result < 0 ? static_cast<int>(-result) : EIO);
            return;
        }
        mReads.fetch_add(1, std::memory_order_relaxed);
        const ptrdiff_t step = iio_buffer_step(mBuffer);
        if (step <= 0) continue;
        std::vector<Sample> samples = decodeScans(mBuffer, step, slots);
        mSamples.fetch_add(samples.size(), std::memory_order_relaxed);
        mDeliver(std::move(samples));
    }
}

void SampleReader::poll(double hz) {
    using Clock = std::chrono::steady_clock;
    const auto period =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1.0 / hz));
    Clock::time_point due = Clock::now();
    while (!stopping()) {
        std::vector<std::pair<int32_t, int64_t>> values;
        for (const Channel& c : mChannels) {
            if (channelId(c.channel) == "timestamp") {
                values.emplace_back(c.index, bootTimeNs());
                continue;
            }
            std::optional<int64_t> value = polledValue(c.channel);
            if (!value) {
                if (stopping()) return;
                mFail(deviceGone() ? ENODEV : EIO);
                return;
            }
            values.emplace_back(c.index, *value);
        }
        mReads.fetch_add(1, std::memory_order_relaxed);
        mSamples.fetch_add(1, std::memory_order_relaxed);
        std::vector<Sample> samples;
        samples.emplace_back(std::move(values));
        mDeliver(std::move(samples));

        // Due times stay on the grid of the period, unless reading fell a period behind.
        due += period;
        if (due < Clock::now()) due = Clock::now() + period;
        base::AutoLock hold(mLock);
        while (!stopping()) {
            if (!mWake.WaitUntil(due)) break;
        }
    }
}

}  // namespace kelvane::host::iio
