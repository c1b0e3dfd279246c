// SPDX-License-Identifier: Apache-2.0

#include "tests/support/fake_driver.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/android/binder.h>
#include <stdarg.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/types.h>

#include <atomic>

namespace {

int driver = -1;
std::atomic<int> exchanges{0};

int Answer(binder_write_read* exchange) {
    static constexpr uint32_t kReply[] = {BR_NOOP, BR_DEAD_REPLY};
    ++exchanges;
    exchange->write_consumed = exchange->write_size;
    if (exchange->read_size < sizeof(kReply)) return 0;
    memcpy(reinterpret_cast<void*>(exchange->read_buffer), kReply, sizeof(kReply));
    exchange->read_consumed = sizeof(kReply);
    return 0;
}

}  // namespace

int android::vus::DriverExchanges() {
    return exchanges;
}

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_ioctl(int fd, unsigned long request, ...);
void* __real_mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset);

int __wrap_open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    if (strcmp(path, "/dev/binder") != 0) return __real_open(path, flags, mode);
    driver = __real_open("/dev/null", O_RDWR | O_CLOEXEC);
    return driver;
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (fd < 0 || fd != driver) return __real_ioctl(fd, request, argument);
    switch (request) {
        case BINDER_VERSION:
            static_cast<binder_version*>(argument)->protocol_version =
                    BINDER_CURRENT_PROTOCOL_VERSION;
            return 0;
        case BINDER_SET_MAX_THREADS:
        case BINDER_THREAD_EXIT:
            return 0;
        case BINDER_WRITE_READ:
            return Answer(static_cast<binder_write_read*>(argument));
        default:
            errno = EINVAL;
            return -1;
    }
}

void* __wrap_mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset) {
    if (fd < 0 || fd != driver) {
        return __real_mmap(address, size, protection, flags, fd, offset);
    }
    return __real_mmap(address, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1,
                       0);
}

}  // extern "C"
