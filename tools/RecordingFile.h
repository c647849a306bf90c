// Where --record writes (and, the same way, where a report goes). The recording goes to a temporary
// file beside the target, created before the run starts, so that a path that cannot be written is
// refused before anything streams; once complete it is renamed over the target, so a file already
// there is replaced whole or not at all, whatever ends the run. The --host input is never a target.
//
// Main thread only.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "host/description/HostConfig.h"

namespace kelvane::tools {

// How messages name the file: the option that gave it and what it holds.
struct FileRole {
    const char* option = "--record";
    const char* what = "recording";
    const char* input = "the --host input";  // the file that may not be replaced
};

class RecordingFile {
  public:
    using Role = FileRole;

    // Checks `target` and creates the temporary file beside it. `hostInput` is the --host
    // argument ("" for none, "-" for standard input), which the recording may not replace. On
    // failure returns null and sets *error to one line.
    static std::unique_ptr<RecordingFile> create(const std::string& target,
                                                 const std::string& hostInput, std::string* error,
                                                 Role role = FileRole());
    // Removes the temporary file unless commit() renamed it.
    ~RecordingFile();
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    // Writes `config` to the temporary file, syncs it to disk and renames it over the target.
    // On failure the target is untouched, the temporary file removed, and *error is one line.
    // Once only.
    bool commit(const host::description::HostConfig& config, std::string* error);
    // The same for a text (a report).
    bool commit(const std::string& text, std::string* error);

    const std::string& target() const { return mTarget; }

  private:
    RecordingFile(std::string target, std::string destination, std::string temporary, int fd,
                  bool existed, Role role);
    bool commitWith(const std::function<bool(std::FILE*)>& write, std::string* error);

    const std::string mTarget;       // as given, for messages
    const std::string mDestination;  // the target, through a symbolic link if it is one
    const std::string mTemporary;
    int mFd;  // the temporary file, until commit()
    const bool mExisted;
    const Role mRole;
    bool mCommitted = false;
};

}  // namespace kelvane::tools
