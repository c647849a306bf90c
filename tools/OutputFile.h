// Every file the tool writes (a recording, a report, an HTML or JUnit page) goes through here, so
// that writing never destroys what was at the path:
// - a regular file, or a path where nothing is yet, is written to an unnamed temporary file in the
//   same directory and renamed over the target once complete: the file there is replaced whole or
//   not at all, keeps its mode (and, where allowed, its owner), and nothing is left behind
//   whatever ends the process, SIGKILL included (where the filesystem cannot make an unnamed
//   file, a named one is removed on every ending but SIGKILL);
// - anything else (a character device such as /dev/null, a FIFO, a socket, a terminal,
//   /dev/stdout, a descriptor under /proc, or "-" for stdout) is written straight into and never
//   replaced;
// - a symbolic link is followed: its target is what is written or replaced.
// The target is checked, and the temporary file made, by create(), before any work is done.
//
// Main thread only.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kelvane::tools {

// A path on the command line, with the option that gave it ("--record", "--html").
struct FileArgument {
    std::string option;  // of an input, how messages name it: "the --host input"
    std::string path;    // "-": stdout for an output, stdin for an input
    std::string what;    // of an output, what it holds: "recording", "report"
};

// The refusal, in one line, of outputs that would destroy each other or an input: an empty path,
// two outputs on one file, an output that is an input file. "" when all is well. `stdoutUsed`
// says that the command prints on stdout itself, so that "-" is not free for an output.
std::string outputClash(const std::vector<FileArgument>& outputs,
                        const std::vector<FileArgument>& inputs, bool stdoutUsed);

class OutputFile {
  public:
    // How messages name the file: the option that gave it and what it holds.
    struct Role {
        const char* option = "--record";
        const char* what = "recording";
    };

    // Checks `target` and prepares the temporary file it needs. On failure returns null and sets
    // *error to one line.
    static std::unique_ptr<OutputFile> create(const std::string& target, Role role,
                                              std::string* error);
    // Removes what commit() did not use.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Has `write` write the content, then makes it the target's (rename, or the end of a stream
    // written straight in). `write` answers false with errno set when a write failed. On failure
    // a regular target is untouched and *error is one line. Once only.
    bool commit(const std::function<bool(std::FILE*)>& write, std::string* error);
    bool commit(const std::string& text, std::string* error);

    const std::string& target() const { return mTarget; }

  private:
    enum class Kind { kReplace, kStraight, kStdout };
    OutputFile(std::string target, Role role) : mTarget(std::move(target)), mRole(role) {}
    bool prepareReplacement(const std::string& path, std::string* error);
    int openStraight() const;
    bool publish(int fd);  // kReplace: the written temporary file becomes the target
    std::string failure(int error) const;

    const std::string mTarget;  // as given, for messages
    const Role mRole;
    Kind mKind = Kind::kReplace;
    std::string mDestination;  // the file to replace or write into, symbolic links followed
    bool mExisted = false;
    int mFd = -1;            // kReplace: the temporary file, until commit()
    std::string mNamedTemp;  // kReplace where no unnamed file could be made
    int mDescriptor = -1;    // kStraight through /proc/self/fd/N or /dev/fd/N: N
};

}  // namespace kelvane::tools
