#include "Stdout.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Session.h"

namespace kelvane::tools {

namespace {

int gWriteErrno = 0;  // the first failure's errno; 0 while every write succeeded

bool check(bool ok) {
    if (!ok && gWriteErrno == 0) gWriteErrno = errno != 0 ? errno : EIO;
    return gWriteErrno == 0;
}

}  // namespace

bool writeStdout(const std::string& text) {
    if (gWriteErrno != 0) return false;
    errno = 0;
    return check(std::fwrite(text.data(), 1, text.size(), stdout) == text.size());
}

bool flushStdout() {
    if (gWriteErrno != 0) return false;
    errno = 0;
    return check(std::fflush(stdout) == 0);
}

void reportStdoutError(int error) {
    if (gWriteErrno == 0) gWriteErrno = error;
}

int finishStdout(int code) {
    if (flushStdout()) return code;
    printError(std::string("write error: ") + std::strerror(gWriteErrno));
    return kExitFailure;
}

}  // namespace kelvane::tools
