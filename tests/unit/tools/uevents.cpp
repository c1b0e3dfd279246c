// SPDX-License-Identifier: Apache-2.0

#include "tests/unit/tools/uevents.h"

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sched.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

namespace android::vus {

namespace {

// The event as the kernel sends it: a head and its variables, each ended by a zero.
std::string MessageOf(const std::string& action, const std::string& path,
                      const std::string& subsystem) {
    const std::string zero(1, '\0');
    return action + "@" + path + zero + "ACTION=" + action + zero + "DEVPATH=" + path + zero +
           "SUBSYSTEM=" + subsystem + zero;
}

// The kernel's answer: 0, or the error.
int AnswerOf(int socket) {
    alignas(nlmsghdr) char buffer[4096];
    const ssize_t length = recv(socket, buffer, sizeof(buffer), 0);
    if (length < static_cast<ssize_t>(NLMSG_LENGTH(sizeof(nlmsgerr)))) return -1;
    return static_cast<const nlmsgerr*>(NLMSG_DATA(reinterpret_cast<nlmsghdr*>(buffer)))->error;
}

}  // namespace

bool EnterPrivateNetwork() {
    return unshare(CLONE_NEWNET) == 0;
}

void SendEvent(const std::string& action, const std::string& path, const std::string& subsystem) {
    const base::unique_fd socket(
            ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    ASSERT_TRUE(socket.ok()) << strerror(errno);
    const std::string message = MessageOf(action, path, subsystem);
    nlmsghdr head = {};
    head.nlmsg_len = static_cast<uint32_t>(NLMSG_LENGTH(message.size()));
    head.nlmsg_type = NLMSG_MIN_TYPE;
    head.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    std::string packet(reinterpret_cast<const char*>(&head), sizeof(head));
    packet += message;
    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    ASSERT_EQ(sendto(socket.get(), packet.data(), packet.size(), 0,
                     reinterpret_cast<const sockaddr*>(&kernel), sizeof(kernel)),
              static_cast<ssize_t>(packet.size()))
            << strerror(errno);
    ASSERT_EQ(AnswerOf(socket.get()), 0);
}

void ForgeEvent(const std::string& path, uint32_t port, uint32_t group) {
    const base::unique_fd socket(
            ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    ASSERT_TRUE(socket.ok()) << strerror(errno);
    const std::string message = MessageOf("bind", path, "usb");
    sockaddr_nl listener = {};
    listener.nl_family = AF_NETLINK;
    listener.nl_pid = port;
    listener.nl_groups = group;
    ASSERT_EQ(sendto(socket.get(), message.data(), message.size(), 0,
                     reinterpret_cast<const sockaddr*>(&listener), sizeof(listener)),
              static_cast<ssize_t>(message.size()))
            << strerror(errno);
}

}  // namespace android::vus
