// SPDX-License-Identifier: Apache-2.0
//
// The command line of vus_hotplug.

#pragma once

#include <string>
#include <vector>

namespace android::vus::hotplug {

struct Options {
    bool once = false;
    bool verbose = false;
    bool fail_closed = false;
    bool gate = false;
    bool interfaces = false;
    bool open = false;
    bool help = false;
    bool version = false;
    std::string events;  // the file; empty: none
    std::string error;   // what is wrong with the command line; empty if nothing is
};

inline constexpr char kUsage[] =
        "usage: vus_hotplug [--gate[=keep|off]] [--interfaces] [--once] [--fail-closed]\n"
        "                   [--verbose] [--events FILE]\n"
        "       vus_hotplug --open\n"
        "\n"
        "Reports USB and input devices to the vus daemon as the kernel finds and loses them,\n"
        "and those that are present already, at the start and whenever the daemon comes back.\n"
        "\n"
        "A refused device is switched off and stays off, an input device included. So is one\n"
        "for which no answer comes within 2 s, until one does.\n"
        "\n"
        "  --gate         hold back each new device until its verdict, so that a refused one "
        "never\n"
        "                 has a driver; the door stays shut when vus_hotplug ends (keep). off,\n"
        "                 the default: drivers first, and what is refused loses them\n"
        "  --interfaces   behind the gate: of a device that is allowed by its classes, keep shut "
        "the\n"
        "                 interfaces of the classes that neither admit nor refuse\n"
        "  --open         open that door, and let in everything that is held\n"
        "  --once         judge the devices that are present, and exit\n"
        "  --fail-closed  switch off what comes while the daemon is away, until it is back\n"
        "  --verbose      print a line a report: entry, kind, vendor:product, classes, answer;\n"
        "                 and for each device whether it worked before it was allowed\n"
        "  --events FILE  append that to FILE, for `vusctl exposure`; at 4 MiB it becomes FILE.1\n"
        "  --version      print the version\n"
        "  --help         print this\n"
        "\n"
        "Exit status: 0 done, or asked to end (SIGINT, SIGTERM); 1 the daemon cannot be reached\n"
        "(--once), or the kernel's events cannot be heard; 2 wrong usage.\n";

// "vus_hotplug" and the version, as a line.
std::string version_line();

// `arguments` without the program's name.
Options parse_options(const std::vector<std::string>& arguments);

}  // namespace android::vus::hotplug
