// Everything the tool prints on stdout goes through here, so that a failed write (a full disk, a
// closed pipe) is noticed and reported once instead of lost. Main thread only.
#pragma once

#include <string>

namespace kelvane::tools {

// Writes `text`; false once any write or flush has failed (later writes are dropped).
bool writeStdout(const std::string& text);
// Pushes buffered output out; false once any write or flush has failed.
bool flushStdout();
// A write to stdout made elsewhere (StdoutWriter) failed with `error`: later writes are dropped
// and finishStdout() reports it.
void reportStdoutError(int error);
// Flushes, and if any write failed prints "iio-subhal: write error: <reason>" and returns
// kExitFailure; otherwise returns `code`.
int finishStdout(int code);

}  // namespace kelvane::tools
