#include <cutils/native_handle.h>
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace {

bool isValid(const native_handle_t* h) {
    return h != nullptr && h->version == static_cast<int>(sizeof(native_handle_t)) &&
           h->numFds >= 0 && h->numFds <= NATIVE_HANDLE_MAX_FDS && h->numInts >= 0 &&
           h->numInts <= NATIVE_HANDLE_MAX_INTS;
}

}  // namespace

extern "C" native_handle_t* native_handle_create(int numFds, int numInts) {
    if (numFds < 0 || numInts < 0 || numFds > NATIVE_HANDLE_MAX_FDS ||
        numInts > NATIVE_HANDLE_MAX_INTS) {
        return nullptr;
    }
    const size_t bytes =
        sizeof(native_handle_t) + sizeof(int) * static_cast<size_t>(numFds + numInts);
    auto* h = static_cast<native_handle_t*>(std::malloc(bytes));
    if (h == nullptr) return nullptr;
    h->version = static_cast<int>(sizeof(native_handle_t));
    h->numFds = numFds;
    h->numInts = numInts;
    return h;
}

extern "C" int native_handle_close(const native_handle_t* h) {
    if (!isValid(h)) return -EINVAL;
    int result = 0;
    for (int i = 0; i < h->numFds; ++i) {
        if (close(h->data[i]) != 0 && result == 0) result = -errno;
    }
    return result;
}

extern "C" int native_handle_delete(native_handle_t* h) {
    if (h == nullptr) return 0;
    if (!isValid(h)) return -EINVAL;
    std::free(h);
    return 0;
}

extern "C" native_handle_t* native_handle_clone(const native_handle_t* h) {
    if (!isValid(h)) return nullptr;
    native_handle_t* clone = native_handle_create(h->numFds, h->numInts);
    if (clone == nullptr) return nullptr;
    for (int i = 0; i < h->numFds; ++i) {
        clone->data[i] = fcntl(h->data[i], F_DUPFD_CLOEXEC, 0);
        if (clone->data[i] < 0) {
            clone->numFds = i;
            native_handle_close(clone);
            native_handle_delete(clone);
            return nullptr;
        }
    }
    for (int i = h->numFds; i < h->numFds + h->numInts; ++i) clone->data[i] = h->data[i];
    return clone;
}
