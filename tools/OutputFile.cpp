#include "OutputFile.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>

namespace kelvane::tools {

namespace {

bool startsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

std::string baseOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// N of "/proc/self/fd/N" or "/dev/fd/N", or -1.
int descriptorOf(const std::string& path) {
    for (const char* prefix : {"/proc/self/fd/", "/proc/thread-self/fd/", "/dev/fd/"}) {
        if (!startsWith(path, prefix)) continue;
        const std::string digits = path.substr(std::strlen(prefix));
        if (digits.empty() || digits.size() > 9 ||
            digits.find_first_not_of("0123456789") != std::string::npos) {
            return -1;
        }
        return std::atoi(digits.c_str());
    }
    return -1;
}

// Where `path` leads, its symbolic links followed one by one so that a link into /proc (such as
// /dev/stdout) is seen as the descriptor it names rather than as what that descriptor is open on.
std::string followLinks(std::string path, bool* throughProc) {
    for (int hops = 0; hops < 40; ++hops) {
        if (startsWith(path, "/proc/") || descriptorOf(path) >= 0) {
            *throughProc = true;
            return path;
        }
        char link[PATH_MAX];
        const ssize_t n = readlink(path.c_str(), link, sizeof(link));
        if (n <= 0 || static_cast<size_t>(n) == sizeof(link)) break;
        const std::string next(link, static_cast<size_t>(n));
        path = next[0] == '/' ? next : directoryOf(path) + "/" + next;
    }
    char* dir = realpath(directoryOf(path).c_str(), nullptr);
    *throughProc = dir != nullptr && startsWith(dir, "/proc/");
    std::free(dir);
    return path;
}

// What tells two paths apart: the file's device and inode, or where a new file would go.
std::string identity(const std::string& path) {
    struct stat st = {};
    if (path == "-") return "stdout";
    if (stat(path.c_str(), &st) == 0) {
        return std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
    }
    char* dir = realpath(directoryOf(path).c_str(), nullptr);
    std::string key = (dir != nullptr ? std::string(dir) : directoryOf(path)) + "/" + baseOf(path);
    std::free(dir);
    return key;
}

bool isRegularFile(const std::string& path, struct stat* st) {
    return path == "-" ? fstat(STDIN_FILENO, st) == 0 && S_ISREG(st->st_mode)
                       : stat(path.c_str(), st) == 0 && S_ISREG(st->st_mode);
}

std::string temporaryName(const std::string& destination) {
    static std::mt19937 random{std::random_device{}()};
    static const char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::string suffix(6, 'x');
    for (char& c : suffix) c = kLetters[random() % (sizeof(kLetters) - 1)];
    return directoryOf(destination) + "/." + baseOf(destination) + "." + suffix;
}

int connectSocket(const std::string& path) {
    struct sockaddr_un address = {};
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

}  // namespace

std::string outputClash(const std::vector<FileArgument>& outputs,
                        const std::vector<FileArgument>& inputs, bool stdoutUsed) {
    for (size_t i = 0; i < outputs.size(); ++i) {
        const FileArgument& output = outputs[i];
        if (output.path.empty()) {
            return output.option + " is empty; give a FILE or leave the option out";
        }
        if (output.path == "-" && stdoutUsed) {
            return output.option +
                   " -: standard output carries what the command prints; give a "
                   "file";
        }
        for (size_t j = 0; j < i; ++j) {
            if (identity(outputs[j].path) == identity(output.path)) {
                return outputs[j].option + " and " + output.option + " both write " + output.path +
                       "; give each its own file";
            }
        }
        struct stat written = {};
        if (!isRegularFile(output.path, &written)) continue;
        for (const FileArgument& input : inputs) {
            struct stat read = {};
            if (!input.path.empty() && isRegularFile(input.path, &read) &&
                read.st_dev == written.st_dev && read.st_ino == written.st_ino) {
                return output.option + " " + output.path + ": is " + input.option + "; write the " +
                       output.what + " to another file";
            }
        }
    }
    return {};
}

std::unique_ptr<OutputFile> OutputFile::create(const std::string& target, Role role,
                                               std::string* error) {
    std::unique_ptr<OutputFile> file(new OutputFile(target, role));
    const std::string prefix = std::string(role.option) + " " + target + ": ";
    if (target.empty() || target.back() == '/') {
        *error = std::string(role.option) + " \"" + target + "\" is not a file name";
        return nullptr;
    }
    if (target == "-") {
        file->mKind = Kind::kStdout;
        return file;
    }
    bool throughProc = false;
    file->mDestination = followLinks(target, &throughProc);
    struct stat existing = {};
    const bool exists = stat(file->mDestination.c_str(), &existing) == 0;
    if (!exists && errno != ENOENT) {
        *error = prefix + std::strerror(errno);
        return nullptr;
    }
    if (exists && S_ISDIR(existing.st_mode)) {
        *error = prefix + "is a directory";
        return nullptr;
    }
    if (throughProc || (exists && !S_ISREG(existing.st_mode))) {
        file->mKind = Kind::kStraight;
        file->mDescriptor = descriptorOf(file->mDestination);
        const bool usable = file->mDescriptor >= 0 ? fcntl(file->mDescriptor, F_GETFD) >= 0
                                                   : access(file->mDestination.c_str(), W_OK) == 0;
        if (!usable) {
            *error = prefix + std::strerror(errno);
            return nullptr;
        }
        return file;
    }
    file->mExisted = exists;
    if (!file->prepareReplacement(file->mDestination, error)) {
        *error = prefix + *error;
        return nullptr;
    }
    if (exists) {
        fchmod(file->mFd, existing.st_mode & 07777);
        // Root replacing someone's file gives it back to them; anyone else cannot, and need not.
        if (fchown(file->mFd, existing.st_uid, existing.st_gid) != 0) errno = 0;
    }
    return file;
}

bool OutputFile::prepareReplacement(const std::string& path, std::string* error) {
    const std::string dir = directoryOf(path);
    // Unnamed: it has no name to leave behind until publish() gives it one.
    mFd = open(dir.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    if (mFd < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        mNamedTemp = dir + "/." + baseOf(path) + ".XXXXXX";
        mFd = mkostemp(mNamedTemp.data(), O_CLOEXEC);
        if (mFd < 0) {
            mNamedTemp.clear();
        } else {
            // mkostemp() makes 0600 whatever the umask says; open(..., 0666) would not.
            const mode_t mask = umask(0);
            umask(mask);
            fchmod(mFd, 0666 & ~mask);
        }
    }
    if (mFd < 0) {
        const size_t slash = path.rfind('/');
        *error = "cannot create a file in " +
                 (slash == std::string::npos ? "." : path.substr(0, slash + 1)) + ": " +
                 std::strerror(errno);
        return false;
    }
    return true;
}

OutputFile::~OutputFile() {
    if (mFd >= 0) close(mFd);
    if (!mNamedTemp.empty()) unlink(mNamedTemp.c_str());
}

int OutputFile::openStraight() const {
    if (mKind == Kind::kStdout) {
        std::fflush(stdout);
        return fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    }
    if (mDescriptor >= 0) return fcntl(mDescriptor, F_DUPFD_CLOEXEC, 0);
    // Appended to: a descriptor's file under /proc may hold what was written to it already.
    const int fd = open(mDestination.c_str(), O_WRONLY | O_APPEND | O_NOCTTY | O_CLOEXEC);
    if (fd < 0 && errno == ENXIO) return connectSocket(mDestination);
    return fd;
}

bool OutputFile::publish(int fd) {
    if (!mNamedTemp.empty()) {
        if (rename(mNamedTemp.c_str(), mDestination.c_str()) != 0) return false;
        mNamedTemp.clear();
        return true;
    }
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    std::string name;
    for (int attempt = 0; attempt < 100; ++attempt) {
        name = temporaryName(mDestination);
        if (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0 ||
            (errno == ENOENT && linkat(fd, "", AT_FDCWD, name.c_str(), AT_EMPTY_PATH) == 0)) {
            break;
        }
        if (errno != EEXIST) return false;
    }
    // Named for as long as the rename takes.
    if (rename(name.c_str(), mDestination.c_str()) == 0) return true;
    const int error = errno;
    unlink(name.c_str());
    errno = error;
    return false;
}

bool OutputFile::commit(const std::function<bool(std::FILE*)>& write, std::string* error) {
    int fd = mFd;
    mFd = -1;
    if (mKind != Kind::kReplace) fd = openStraight();
    std::FILE* file = fd >= 0 ? fdopen(fd, "w") : nullptr;
    if (file == nullptr) {
        const int failed = errno;
        if (fd >= 0) close(fd);
        *error = failure(failed);
        return false;
    }
    errno = 0;
    bool ok = write(file) && std::fflush(file) == 0;
    if (ok && mKind == Kind::kReplace) ok = fsync(fileno(file)) == 0 && publish(fileno(file));
    int failed = ok ? 0 : errno != 0 ? errno : EIO;
    if (std::fclose(file) != 0 && failed == 0) failed = errno;
    if (failed == 0) return true;
    *error = failure(failed);
    return false;
}

bool OutputFile::commit(const std::string& text, std::string* error) {
    return commit(
        [&text](std::FILE* file) {
            return std::fwrite(text.data(), 1, text.size(), file) == text.size();
        },
        error);
}

std::string OutputFile::failure(int error) const {
    return mTarget + ": " + mRole.what + " not written: " + std::strerror(error) +
           (mKind == Kind::kReplace && mExisted ? " (the file there is unchanged)" : "");
}

}  // namespace kelvane::tools
