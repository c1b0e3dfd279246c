// SPDX-License-Identifier: Apache-2.0
//
// The functions of cutils/uevent.h that are used here, which Debian's libcutils declares and does
// not define. What is told apart, and by which errors, is as in Android's libcutils.

#include <cutils/uevent.h>

#include <errno.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <android-base/unique_fd.h>

namespace {

// The kernel's own multicasts. A udev daemon sends its to another group.
constexpr unsigned kKernelGroup = 1;

bool SetOption(int socket, int option, int value) {
    return setsockopt(socket, SOL_SOCKET, option, &value, sizeof(value)) == 0;
}

bool HasCredentials(msghdr* message) {
    const cmsghdr* const control = CMSG_FIRSTHDR(message);
    return control != nullptr && control->cmsg_level == SOL_SOCKET &&
           control->cmsg_type == SCM_CREDENTIALS;
}

}  // namespace

int uevent_open_socket(int buf_sz, bool passcred) {
    android::base::unique_fd socket(
            ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    if (!socket.ok()) return -1;
    // Beyond the system's limit for who may; up to that limit for others.
    if (!SetOption(socket.get(), SO_RCVBUFFORCE, buf_sz)) {
        SetOption(socket.get(), SO_RCVBUF, buf_sz);
    }
    if (!SetOption(socket.get(), SO_PASSCRED, passcred ? 1 : 0)) return -1;
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kKernelGroup;
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return -1;
    }
    return socket.release();
}

ssize_t uevent_kernel_multicast_recv(int socket, void* buffer, size_t length) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))] = {};
    sockaddr_nl sender = {};
    iovec data = {buffer, length};
    msghdr message = {};
    message.msg_name = &sender;
    message.msg_namelen = sizeof(sender);
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    const ssize_t received = recvmsg(socket, &message, 0);
    if (received < 0) return received;
    // 0 is the kernel's own number as a sender. To a group, because whoever may send to one may
    // send to a single receiver, too.
    if (HasCredentials(&message) && sender.nl_pid == 0 && sender.nl_groups != 0) return received;
    errno = EIO;
    return -1;
}
