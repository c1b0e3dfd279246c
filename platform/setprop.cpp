// SPDX-License-Identifier: Apache-2.0
//
// setprop: sets one property.

#include <stdio.h>
#include <string.h>

#include <string>

#include "platform/property_store.h"

namespace {

using android::vus::platform::SystemProperties;

constexpr char kUsage[] =
        "usage: setprop NAME VALUE\n"
        "\n"
        "Sets a property. A name is of letters, digits and . - _ @ : (no dot at either end, no\n"
        "two in a row); a value has at most 91 bytes. A name that begins with \"ro.\" can be set\n"
        "once, and its value may be longer. Exit status: 0 set, 1 not set, 2 wrong usage.\n";

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc != 3) {
        fputs(kUsage, stderr);
        return 2;
    }
    std::string error = SystemProperties().Set(argv[1], argv[2]);
    if (error.empty()) return 0;
    fprintf(stderr, "setprop: %s\n", error.c_str());
    return 1;
}
