#include "RecordingFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "host/description/DescriptionWriter.h"

namespace kelvane::tools {

namespace {

bool sameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The mode a new file gets from open(..., 0666): mkstemp() makes 0600 whatever the umask says.
mode_t newFileMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

std::unique_ptr<RecordingFile> RecordingFile::create(const std::string& target,
                                                     const std::string& hostInput,
                                                     std::string* error, Role role) {
    const std::string prefix = std::string(role.option) + " " + target + ": ";
    if (target.empty() || target.back() == '/') {
        *error = prefix + "not a file name";
        return nullptr;
    }
    std::string destination = target;
    struct stat existing = {};
    const bool existed = stat(target.c_str(), &existing) == 0;
    if (existed) {
        if (S_ISDIR(existing.st_mode)) {
            *error = prefix + "is a directory";
            return nullptr;
        }
        struct stat input = {};
        const bool haveInput = hostInput == "-"     ? fstat(STDIN_FILENO, &input) == 0
                               : !hostInput.empty() ? stat(hostInput.c_str(), &input) == 0
                                                    : false;
        if (haveInput && sameFile(existing, input)) {
            *error = prefix + "is " + role.input + "; write the " + role.what + " to another file";
            return nullptr;
        }
        // Through a symbolic link, as writing the file in place would.
        if (char* resolved = realpath(target.c_str(), nullptr)) {
            destination = resolved;
            std::free(resolved);
        }
    }
    const size_t slash = destination.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : destination.substr(0, slash + 1);
    const std::string base =
        slash == std::string::npos ? destination : destination.substr(slash + 1);
    std::string temporary = (slash == std::string::npos ? "" : dir) + "." + base + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        *error = prefix + "cannot create a file in " + dir + ": " + std::strerror(errno);
        return nullptr;
    }
    fchmod(fd, existed ? (existing.st_mode & 07777) : newFileMode());
    return std::unique_ptr<RecordingFile>(
        new RecordingFile(target, std::move(destination), std::move(temporary), fd, existed, role));
}

RecordingFile::RecordingFile(std::string target, std::string destination, std::string temporary,
                             int fd, bool existed, Role role)
    : mTarget(std::move(target)),
      mDestination(std::move(destination)),
      mTemporary(std::move(temporary)),
      mFd(fd),
      mExisted(existed),
      mRole(role) {}

RecordingFile::~RecordingFile() {
    if (mFd >= 0) close(mFd);
    if (!mCommitted) unlink(mTemporary.c_str());
}

bool RecordingFile::commit(const host::description::HostConfig& config, std::string* error) {
    return commitWith(
        [&config](std::FILE* file) {
            return host::description::writeHostDescription(config, file);
        },
        error);
}

bool RecordingFile::commit(const std::string& text, std::string* error) {
    return commitWith(
        [&text](std::FILE* file) {
            return std::fwrite(text.data(), 1, text.size(), file) == text.size();
        },
        error);
}

bool RecordingFile::commitWith(const std::function<bool(std::FILE*)>& write, std::string* error) {
    int failure = 0;
    std::FILE* file = fdopen(mFd, "w");
    if (file == nullptr) {
        failure = errno;
    } else {
        mFd = -1;  // the stream owns it now
        errno = 0;
        if (!write(file) || std::fflush(file) != 0 || fsync(fileno(file)) != 0) {
            failure = errno != 0 ? errno : EIO;
        }
        if (std::fclose(file) != 0 && failure == 0) failure = errno;
    }
    if (failure == 0 && rename(mTemporary.c_str(), mDestination.c_str()) != 0) failure = errno;
    if (failure != 0) {
        *error = mTarget + ": " + mRole.what + " not written: " + std::strerror(failure) +
                 (mExisted ? " (the file there is unchanged)" : "");
        return false;
    }
    mCommitted = true;
    return true;
}

}  // namespace kelvane::tools
