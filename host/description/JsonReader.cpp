#include "host/description/JsonReader.h"

#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <unordered_set>
#include <utility>

namespace kelvane::host::description {

namespace {

using nlohmann::json;

constexpr size_t kReadChunk = 1 << 16;

bool isJsonWhitespace(int c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

// Walks a JsonSource for nlohmann's parser, byte by byte, without holding the text. Outside
// strings a run of whitespace reaches the parser as its first byte only: the parser keeps every
// byte since its last token for its messages, escaping control characters eightfold, so 500 MB
// of blank lines would cost gigabytes to refuse. The source counts the bytes passed over.
class SourceIterator {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = char;

    SourceIterator() = default;
    explicit SourceIterator(JsonSource* source) : mSource(source) {}

    char operator*() const {
        passOverRun();
        return static_cast<char>(mSource->peek());
    }
    SourceIterator& operator++() {
        passOverRun();
        const int c = mSource->peek();
        mSource->advance();
        if (mInString) {
            if (mEscaped) {
                mEscaped = false;
            } else if (c == '\\') {
                mEscaped = true;
            } else if (c == '"') {
                mInString = false;
            }
        } else if (c == '"') {
            mInString = true;
        } else {
            mAfterWhitespace = isJsonWhitespace(c);
        }
        return *this;
    }
    bool operator==(const SourceIterator& other) const { return atEnd() == other.atEnd(); }
    bool operator!=(const SourceIterator& other) const { return !(*this == other); }

  private:
    bool atEnd() const {
        if (mSource == nullptr) return true;
        passOverRun();
        return mSource->peek() < 0;
    }
    // Only once the parser asks for the byte after a whitespace, so that one that ends a token
    // in error is still where the error is.
    void passOverRun() const {
        if (!mAfterWhitespace) return;
        mAfterWhitespace = false;
        while (isJsonWhitespace(mSource->peek())) mSource->passOver();
    }

    JsonSource* mSource = nullptr;
    bool mInString = false;  // the bytes that JSON strings are made of, as the parser reads them
    bool mEscaped = false;   // in a string, after a backslash
    mutable bool mAfterWhitespace = false;  // the parser was last given whitespace
};

// Builds the document from the parser's events. Keeps one frame per open container, reused
// across containers at the same depth so that their key sets keep their memory.
class Builder {
  public:
    Builder(const JsonSource& source, const JsonRowsPattern& rowsAt, JsonDocument* doc)
        : mSource(source), mRowsAt(rowsAt), mDoc(doc) {}

    const std::string& error() const { return mError; }

    // nlohmann's SAX interface.
    bool null() { return mMode == Mode::kTree ? put(json(nullptr)) : rowValue(0, false); }
    bool boolean(bool v) { return mMode == Mode::kTree ? put(json(v)) : notAnInteger(); }
    bool number_integer(json::number_integer_t v) {
        return mMode == Mode::kTree ? put(json(v)) : rowValue(v, true);
    }
    bool number_unsigned(json::number_unsigned_t v) {
        if (mMode == Mode::kTree) return put(json(v));
        if (v > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
            return fail(rowPath(), std::to_string(v) + " is out of range for a 64-bit integer");
        }
        return rowValue(static_cast<int64_t>(v), true);
    }
    bool number_float(json::number_float_t v, const json::string_t&) {
        return mMode == Mode::kTree ? put(json(v)) : notAnInteger();
    }
    bool string(json::string_t& v) {
        return mMode == Mode::kTree ? put(json(std::move(v))) : notAnInteger();
    }
    bool binary(json::binary_t&) { return fail(elementPath(), "unexpected binary value"); }

    bool start_object(std::size_t) {
        if (mMode != Mode::kTree) return notAnInteger();
        std::string token = elementToken();
        return push(place(json::object()), false, std::move(token));
    }

    bool key(json::string_t& key) {
        Frame& frame = mFrames[mDepth - 1];
        if (!frame.keys.insert(key).second) {
            return fail(containerPath(), "duplicate key \"" + key + "\"");
        }
        frame.key = std::move(key);
        return true;
    }

    bool end_object() {
        --mDepth;
        return true;
    }

    bool start_array(std::size_t) {
        if (mMode == Mode::kRows) {
            mMode = Mode::kRow;
            mColumn = 0;
            return true;
        }
        if (mMode == Mode::kRow) return notAnInteger();
        std::string token = elementToken();
        const bool rows = matchesRowsPattern(token);
        if (!push(place(json::array()), true, std::move(token))) return false;
        if (rows) {
            mRowsPath = containerPath();
            mRows = &mDoc->rows[mRowsPath];
            mMode = Mode::kRows;
        }
        return true;
    }

    bool end_array() {
        if (mMode == Mode::kRow) {
            mRows->ends.push_back(mRows->values.appended());
            mMode = Mode::kRows;
            return true;
        }
        if (mMode == Mode::kRows) mMode = Mode::kTree;
        --mDepth;
        return true;
    }

    bool parse_error(std::size_t position, const std::string&, const json::exception& e) {
        if (mSource.readError() != 0) {
            mError = std::string("cannot read: ") + std::strerror(mSource.readError());
        } else if (e.id == 406) {
            // A number too large for a double: the parser names no position, so it is added
            // here, with the path it was meant for.
            std::string what = e.what();
            const size_t bracket = what.find("] ");
            if (bracket != std::string::npos) what = what.substr(bracket + 2);
            const std::string path = mMode == Mode::kTree ? elementPath() : rowPath();
            mError = path + ": " + mSource.position(mSource.parserOffset(position)) + ": " + what;
        } else {
            // "[json.exception.parse_error.101] parse error at line 3, column 7: syntax error
            // ..." becomes "line 3, column 7: syntax error ...", the position read from the
            // source: the parser did not see the whitespace passed over.
            std::string what = e.what();
            const std::string marker = "parse error at ";
            const size_t at = what.find(marker);
            const size_t colon = at == std::string::npos ? at : what.find(": ", at);
            const size_t bracket = what.find("] ");
            if (colon != std::string::npos) {
                what = mSource.position(mSource.parserOffset(position)) + what.substr(colon);
            } else if (bracket != std::string::npos) {
                what = what.substr(bracket + 2);
            }
            mError = what;
        }
        return false;
    }

  private:
    enum class Mode { kTree, kRows, kRow };

    struct Frame {
        json* node = nullptr;
        bool isArray = false;
        size_t count = 0;   // elements so far, in an array
        std::string key;    // the last key, in an object
        std::string token;  // this container's token within its parent
        std::unordered_set<std::string> keys;
    };

    bool fail(const std::string& path, const std::string& what) {
        if (mError.empty()) mError = path + ": " + what;
        return false;
    }

    bool notAnInteger() {
        if (mMode == Mode::kRows) return fail(rowPath(), "expected an array");
        return fail(rowPath(), "expected an integer or null");
    }

    bool rowValue(int64_t value, bool present) {
        if (mMode == Mode::kRows) return fail(rowPath(), "expected an array");
        mRows->values.push_back(value);
        mRows->present.push_back(present);
        ++mColumn;
        return true;
    }

    // Puts a value where the parser is: the root, the next array element or the current key.
    json* place(json value) {
        if (mDepth == 0) {
            mDoc->root = std::move(value);
            return &mDoc->root;
        }
        Frame& frame = mFrames[mDepth - 1];
        if (frame.isArray) {
            frame.node->push_back(std::move(value));
            ++frame.count;
            return &frame.node->back();
        }
        json& slot = (*frame.node)[frame.key];
        slot = std::move(value);
        return &slot;
    }

    bool put(json value) {
        place(std::move(value));
        return true;
    }

    bool push(json* node, bool isArray, std::string token) {
        if (mDepth == kMaxJsonDepth) {
            return fail(containerPath(),
                        "nested deeper than " + std::to_string(kMaxJsonDepth) + " levels");
        }
        if (mDepth == mFrames.size()) mFrames.emplace_back();
        Frame& frame = mFrames[mDepth++];
        frame.node = node;
        frame.isArray = isArray;
        frame.count = 0;
        frame.key.clear();
        frame.token = std::move(token);
        frame.keys.clear();
        return true;
    }

    // The token the next value takes within the innermost container.
    std::string elementToken() const {
        if (mDepth == 0) return "";
        const Frame& frame = mFrames[mDepth - 1];
        return frame.isArray ? std::to_string(frame.count) : jsonPointerToken(frame.key);
    }

    // Whether an array starting now, with `token` in the innermost container, is at rowsAt.
    bool matchesRowsPattern(const std::string& token) const {
        // The array's path has one token per open container: mFrames[i] holds the element
        // named by token i, which is mFrames[i + 1]'s token or, for the last, `token`.
        if (mRowsAt.empty() || mDepth != mRowsAt.size()) return false;
        for (size_t i = 0; i < mRowsAt.size(); ++i) {
            const std::string& t = i + 1 < mDepth ? mFrames[i + 1].token : token;
            if (mRowsAt[i] == "*") {
                if (!mFrames[i].isArray) return false;
            } else if (mFrames[i].isArray || t != jsonPointerToken(mRowsAt[i])) {
                return false;
            }
        }
        return true;
    }

    std::string containerPath() const {
        std::string path;
        for (size_t i = 1; i < mDepth; ++i) path += "/" + mFrames[i].token;
        return path.empty() ? "/" : path;
    }

    std::string elementPath() const {
        if (mDepth == 0) return "/";
        const std::string container = containerPath();
        return (container == "/" ? "" : container) + "/" + elementToken();
    }

    // Inside captured rows: the row, or the value within the row, the parser is at.
    std::string rowPath() const {
        std::string path = mRowsPath + "/" + std::to_string(mRows->ends.size());
        if (mMode == Mode::kRow) path += "/" + std::to_string(mColumn);
        return path;
    }

    const JsonSource& mSource;
    const JsonRowsPattern& mRowsAt;
    JsonDocument* const mDoc;
    std::vector<Frame> mFrames;
    size_t mDepth = 0;  // open containers: mFrames[0, mDepth)
    Mode mMode = Mode::kTree;
    JsonRows* mRows = nullptr;  // the rows being captured, in kRows and kRow
    std::string mRowsPath;
    size_t mColumn = 0;  // the next value's index within the row, in kRow
    std::string mError;
};

}  // namespace

IntegerQueue::~IntegerQueue() {
    for (int64_t* block : mBlocks) ::munmap(block, kBlockValues * sizeof(int64_t));
}

IntegerQueue::IntegerQueue(IntegerQueue&& other) noexcept
    : mBlocks(std::move(other.mBlocks)), mAppended(other.mAppended), mTaken(other.mTaken) {
    other.mBlocks.clear();
    other.mAppended = other.mTaken = 0;
}

void IntegerQueue::push_back(int64_t value) {
    const size_t slot = mAppended - (mTaken - mTaken % kBlockValues);  // within mBlocks
    if (slot == mBlocks.size() * kBlockValues) {
        void* block = ::mmap(nullptr, kBlockValues * sizeof(int64_t), PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED) throw std::bad_alloc();
        mBlocks.push_back(static_cast<int64_t*>(block));
    }
    mBlocks[slot / kBlockValues][slot % kBlockValues] = value;
    ++mAppended;
}

int64_t IntegerQueue::take() {
    const int64_t value = mBlocks.front()[mTaken % kBlockValues];
    if (++mTaken % kBlockValues == 0) {
        ::munmap(mBlocks.front(), kBlockValues * sizeof(int64_t));
        mBlocks.pop_front();
    }
    return value;
}

JsonSource::JsonSource(const std::string& text, size_t limit)
    : mLimit(limit), mNext(text.data()), mEnd(text.data() + std::min(text.size(), limit)) {
    mTooLarge = text.size() > limit;
    stopAtNul();
}

void JsonSource::stopAtNul() {
    if (const void* nul = std::memchr(mNext, '\0', static_cast<size_t>(mEnd - mNext))) {
        mEnd = static_cast<const char*>(nul);
        mSawNul = true;
    }
}

JsonSource::JsonSource(int fd, size_t limit, std::function<bool()> stop)
    : mFd(fd), mStop(std::move(stop)), mLimit(limit), mBuffer(kReadChunk) {}

bool JsonSource::waitForInput() {
    if (!mStop) return true;
    struct pollfd ready = {mFd, POLLIN, 0};
    while (!mStop()) {
        const int n = ::poll(&ready, 1, 100);
        if (n > 0 || (n < 0 && errno != EINTR)) return true;  // read() says what went wrong
    }
    mReadError = EINTR;
    return false;
}

bool JsonSource::refill() {
    if (mFd < 0 || mTooLarge || mSawNul || mReadError != 0) return false;
    if (mOffset >= mLimit) {
        // One byte more than allowed tells a file at the limit from one beyond it.
        char extra = 0;
        ssize_t n = 0;
        do {
            n = ::read(mFd, &extra, 1);
        } while (n < 0 && errno == EINTR);
        if (n < 0) mReadError = errno;
        mTooLarge = n > 0;
        return false;
    }
    if (!waitForInput()) return false;
    const size_t want = std::min(mBuffer.size(), mLimit - mOffset);
    ssize_t n = 0;
    do {
        n = ::read(mFd, mBuffer.data(), want);
    } while (n < 0 && errno == EINTR);
    if (n < 0) mReadError = errno;
    if (n <= 0) return false;
    mNext = mBuffer.data();
    mEnd = mNext + n;
    stopAtNul();
    return mNext != mEnd;
}

std::string JsonSource::position(size_t offset) const {
    size_t line = mLine;
    size_t start = mLineStart;
    if (start > offset && line > 1) {  // the byte read ahead was a newline
        --line;
        start = mPreviousLineStart;
    }
    return "line " + std::to_string(line) + ", column " +
           std::to_string(offset >= start ? offset - start : 0);
}

bool readJson(JsonSource& source, const JsonRowsPattern& rowsAt, JsonDocument* out,
              std::string* error) {
    JsonDocument doc;
    Builder builder(source, rowsAt, &doc);
    bool ok = false;
    try {
        ok = json::sax_parse(SourceIterator(&source), SourceIterator(), &builder);
    } catch (const std::exception& e) {
        *error = e.what();  // nothing the parser throws is expected here, but none escapes
        return false;
    }
    // A source cut short (by the limit or a NUL byte) may still have parsed: it is refused
    // all the same, for what it is rather than for the syntax it left.
    if (source.tooLarge()) {
        *error = tooLargeError(source.limit());
        return false;
    }
    if (source.sawNul()) {
        *error = "not a text file: a NUL byte at " + source.position(source.offset() + 1);
        return false;
    }
    if (!ok) {
        *error = builder.error().empty() ? "cannot parse" : builder.error();
        return false;
    }
    *out = std::move(doc);
    return true;
}

std::string tooLargeError(size_t limit) {
    const std::string size = limit % (1 << 20) == 0 ? std::to_string(limit >> 20) + " MiB"
                                                    : std::to_string(limit) + " bytes";
    return "larger than the " + size + " a host description may hold";
}

std::string jsonPointerToken(const std::string& key) {
    std::string token;
    token.reserve(key.size());
    for (char c : key) {
        if (c == '~') {
            token += "~0";
        } else if (c == '/') {
            token += "~1";
        } else {
            token += c;
        }
    }
    return token;
}

}  // namespace kelvane::host::description
