// SPDX-License-Identifier: Apache-2.0
//
// getprop: prints one property's value, or all of them.

#include <stdio.h>
#include <string.h>

#include "platform/property_store.h"

namespace {

using android::vus::platform::PropertyStore;
using android::vus::platform::SystemProperties;

constexpr char kUsage[] =
        "usage: getprop [NAME [DEFAULT]]\n"
        "\n"
        "Prints the value of a property, or DEFAULT (an empty line without one) if it is\n"
        "not set. Without arguments, prints every property as [name]: [value].\n";

void PrintAll(const PropertyStore& store) {
    for (const auto& [name, value] : store.List()) {
        printf("[%s]: [%s]\n", name.c_str(), value.c_str());
    }
}

void PrintOne(const PropertyStore& store, const char* name, const char* fallback) {
    std::string value = store.Get(name).value_or("");
    puts(value.empty() ? fallback : value.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc > 3 || (argc > 1 && argv[1][0] == '-')) {
        fputs(kUsage, stderr);
        return 2;
    }
    PropertyStore store = SystemProperties();
    if (argc == 1) {
        PrintAll(store);
    } else {
        PrintOne(store, argv[1], argc == 3 ? argv[2] : "");
    }
    return fflush(stdout) == 0 ? 0 : 1;
}
