// SPDX-License-Identifier: Apache-2.0
//
// What a program can do that was given a USB device's node: it claims interfaces, sets
// configurations and alternate settings, resets the device, and talks to it.
//
//   vus_usbfs NODE STEP...
//
//   disconnect:I  takes interface I from its driver      connect:I  has drivers tried on it
//   claim:I, release:I                                   alternate:I,A  sets setting A of it
//   seize:I,S     claims it, again and again for S s     configuration:N
//   control       asks the device for its status         reset
//   hold          stays, with all that it has
//
// Prints what each step was answered: "claim:0 ok", or the kernel's word for why not.

#include <errno.h>
#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <string>

namespace {

struct Step {
    std::string name;
    unsigned first = 0;
    unsigned second = 0;
};

Step parse(const std::string& text) {
    Step step;
    const size_t colon = text.find(':');
    step.name = text.substr(0, colon);
    if (colon == std::string::npos) return step;
    const char* const numbers = text.c_str() + colon + 1;
    step.first = static_cast<unsigned>(strtoul(numbers, nullptr, 10));
    const char* const comma = strchr(numbers, ',');
    if (comma != nullptr) step.second = static_cast<unsigned>(strtoul(comma + 1, nullptr, 10));
    return step;
}

// What the kernel does with an interface's driver.
int drive(int device, unsigned interface, int code) {
    usbdevfs_ioctl request = {static_cast<int>(interface), code, nullptr};
    return ioctl(device, USBDEVFS_IOCTL, &request);
}

int claim(int device, unsigned interface) {
    return ioctl(device, USBDEVFS_CLAIMINTERFACE, &interface);
}

int seize(int device, unsigned interface, unsigned seconds) {
    const time_t end = time(nullptr) + static_cast<time_t>(seconds);
    while (claim(device, interface) != 0) {
        if (time(nullptr) > end) return -1;
        drive(device, interface, USBDEVFS_DISCONNECT);
        usleep(200);
    }
    return 0;
}

int ask_status(int device) {
    char answer[2];
    constexpr unsigned char kToHost = 0x80;
    constexpr unsigned kMilliseconds = 1000;
    usbdevfs_ctrltransfer transfer = {kToHost,        /*bRequest=*/0, 0,     0,
                                      sizeof(answer), kMilliseconds,  answer};
    return ioctl(device, USBDEVFS_CONTROL, &transfer);
}

int take(int device, const Step& step) {
    unsigned number = step.first;
    if (step.name == "disconnect") return drive(device, number, USBDEVFS_DISCONNECT);
    if (step.name == "connect") return drive(device, number, USBDEVFS_CONNECT);
    if (step.name == "claim") return claim(device, number);
    if (step.name == "release") return ioctl(device, USBDEVFS_RELEASEINTERFACE, &number);
    if (step.name == "seize") return seize(device, number, step.second);
    if (step.name == "configuration") return ioctl(device, USBDEVFS_SETCONFIGURATION, &number);
    if (step.name == "control") return ask_status(device);
    if (step.name == "reset") return ioctl(device, USBDEVFS_RESET);
    if (step.name == "hold") return pause();
    if (step.name == "alternate") {
        usbdevfs_setinterface setting = {step.first, step.second};
        return ioctl(device, USBDEVFS_SETINTERFACE, &setting);
    }
    errno = ENOSYS;
    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: vus_usbfs NODE STEP...\n");
        return 2;
    }
    const int device = open(argv[1], O_RDWR | O_CLOEXEC);
    if (device < 0) {
        printf("open %s\n", strerror(errno));
        return 1;
    }
    for (int at = 2; at < argc; ++at) {
        const int answer = take(device, parse(argv[at]));
        printf("%s %s\n", argv[at], answer < 0 ? strerror(errno) : "ok");
        fflush(stdout);
    }
    return 0;
}
