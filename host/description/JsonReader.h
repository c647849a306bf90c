// Reads a JSON document in one pass, for host descriptions: repeated keys are refused as they are
// met, the input is capped in size, and long arrays of numeric rows (recorded samples) are kept
// as flat numbers instead of one tree node per number. Every error is one line naming the JSON
// path, and the line and column where the text itself is at fault.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kelvane::host::description {

// Integers appended in blocks of pages of their own: growing never copies what is held, and the
// blocks taken from the front go back to the system at once, so that rows turned into samples
// cost their size in memory once, not the two or three times a growing vector's copies take.
class IntegerQueue {
  public:
    IntegerQueue() = default;
    ~IntegerQueue();
    IntegerQueue(IntegerQueue&& other) noexcept;
    IntegerQueue& operator=(IntegerQueue&& other) = delete;
    IntegerQueue(const IntegerQueue&) = delete;

    void push_back(int64_t value);
    // How many were ever appended: the index the next one gets.
    size_t appended() const { return mAppended; }
    // Removes and returns the oldest value not taken yet. Only while one is left.
    int64_t take();

  private:
    static constexpr size_t kBlockValues = size_t{128} << 10;  // 1 MiB

    std::deque<int64_t*> mBlocks;  // mapped; the first holds the next value to take
    size_t mAppended = 0;
    size_t mTaken = 0;
};

// The rows of one array captured flat: every row is an array of integers and nulls.
struct JsonRows {
    IntegerQueue values;        // every row's values, one after the other (null reads as 0)
    std::vector<bool> present;  // by index in `values`: false for a null
    std::deque<size_t> ends;    // per row: the index in `values` just past its last value

    size_t rowCount() const { return ends.size(); }
    size_t rowBegin(size_t row) const { return row == 0 ? 0 : ends[row - 1]; }
};

struct JsonDocument {
    // The document, with every captured rows array left empty here.
    nlohmann::json root;
    // Captured rows by the JSON path of their array ("/devices/0/timedSamples/samples").
    std::map<std::string, JsonRows> rows;
};

// Where arrays of rows are captured: a path pattern whose tokens are keys, or "*" for any array
// index ({"devices", "*", "timedSamples", "samples"}).
using JsonRowsPattern = std::vector<std::string>;

// A source of text. Reading stops with an error once more than `limit` bytes have come.
class JsonSource {
  public:
    // Text already in memory; it must outlive the source.
    JsonSource(const std::string& text, size_t limit);
    // An open file descriptor, read as far as the document goes (not closed here). While it
    // waits for input, `stop` is asked every 100 ms; once it answers true reading ends as a read
    // error (EINTR).
    JsonSource(int fd, size_t limit, std::function<bool()> stop = nullptr);
    JsonSource(const JsonSource&) = delete;
    JsonSource& operator=(const JsonSource&) = delete;

    // The next byte, or -1 at the end (of the text, the limit or after a read error).
    int peek() {
        if (mNext == mEnd && !refill()) return -1;
        return static_cast<unsigned char>(*mNext);
    }
    void advance() {
        if (*mNext == '\n') {
            mPreviousLineStart = mLineStart;
            mLineStart = mOffset + 1;
            ++mLine;
        }
        ++mNext;
        ++mOffset;
    }
    // Advances past a byte the parser is not shown (whitespace after whitespace).
    void passOver() {
        advance();
        ++mPassedOver;
    }

    bool tooLarge() const { return mTooLarge; }
    // A NUL byte ends the text: no description holds one, so the source is not text.
    bool sawNul() const { return mSawNul; }
    size_t limit() const { return mLimit; }
    size_t offset() const { return mOffset; }  // bytes consumed so far
    // The offset of the parser's `position` (bytes it was shown) in the text.
    size_t parserOffset(size_t position) const { return position + mPassedOver; }
    int readError() const { return mReadError; }  // errno of a failed read, 0 if none
    // "line L, column C" (from 1) of the byte just before `end`, which may be at most one byte
    // past the last byte read.
    std::string position(size_t offset) const;

  private:
    bool refill();
    bool waitForInput();
    void stopAtNul();

    int mFd = -1;
    std::function<bool()> mStop;
    size_t mLimit;
    std::vector<char> mBuffer;
    const char* mNext = nullptr;
    const char* mEnd = nullptr;
    size_t mOffset = 0;  // bytes consumed so far
    size_t mLine = 1;
    size_t mLineStart = 0;  // offset of the first byte of the current line
    size_t mPreviousLineStart = 0;
    size_t mPassedOver = 0;  // bytes consumed but not shown to the parser
    bool mTooLarge = false;
    bool mSawNul = false;
    int mReadError = 0;
};

// Containers nest at most this deep; description nest four levels.
constexpr size_t kMaxJsonDepth = 64;

// Parses the whole source. On failure returns false and sets *error to one line:
// "/devices/0/id: duplicate key \"id\"", "line 3, column 7: syntax error ...", or
// "/devices/0/maxFrequency: line 4, column 29: number overflow parsing '1e400'".
bool readJson(JsonSource& source, const JsonRowsPattern& rowsAt, JsonDocument* out,
              std::string* error);

// "larger than the 512 MiB a host description may hold".
std::string tooLargeError(size_t limit);

// A JSON pointer token: '~' and '/' escaped so that a path reads back unambiguously.
std::string jsonPointerToken(const std::string& key);

}  // namespace kelvane::host::description
