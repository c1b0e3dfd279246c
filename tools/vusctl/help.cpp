// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/help.h"

#include <algorithm>

#include <android-base/stringprintf.h>

#include "tools/common/text.h"

namespace android::vus::ctl {

namespace {

constexpr char kUsageLine[] =
        "usage: vusctl COMMAND [ARGUMENT...]\n"
        "       vusctl --version\n";

constexpr char kNotes[] =
        "\n"
        "vusctl COMMAND --help tells more of a command. A FILE of - is the standard\n"
        "input.\n"
        "\n"
        "Exit status: 0 done, or allowed; 1 not allowed, or policy rejected, or a check\n"
        "failed; 2 wrong usage; 3 the daemon is not running; 4 something else failed; 5\n"
        "policy check --strict found something.\n";

std::string call_of(const Option& option) {
    return option.value == nullptr ? option.name : std::string(option.name) + " " + option.value;
}

}  // namespace

std::string synopsis(const Command& command) {
    const std::string begin = "vusctl " + command.path();
    const std::string indent(begin.size() + 1, ' ');
    std::string text, line = begin;
    auto add = [&](const std::string& word) {
        if (line.size() + 1 + word.size() > kScreenWidth - 7) {  // behind "usage: "
            text += line + "\n";
            line = indent + word;
        } else {
            line += " " + word;
        }
    };
    if (*command.arguments != '\0') add(command.arguments);
    for (const Option& option : command.options) {
        add(option.required ? call_of(option) : "[" + call_of(option) + "]");
    }
    return text + line + "\n";
}

void print_help(std::ostream& out) {
    out << kUsageLine << "\n" << kDescription << "\n";
    for (const Command& command : commands()) {
        out << base::StringPrintf("  %-16s %s\n", command.path().c_str(), command.summary);
    }
    out << kNotes;
}

void print_help(const Command& command, std::ostream& out) {
    std::string usage = synopsis(command);
    for (size_t at = usage.find('\n'); at + 1 < usage.size(); at = usage.find('\n', at + 1)) {
        usage.insert(at + 1, "       ");
    }
    out << "usage: " << usage << "\n" << command.summary << "\n";
    if (!command.options.empty()) out << "\n";
    size_t width = 0;
    for (const Option& option : command.options) width = std::max(width, call_of(option).size());
    for (const Option& option : command.options) {
        out << base::StringPrintf("  %-*s  %s\n", static_cast<int>(width), call_of(option).c_str(),
                                  option.help);
    }
    if (*command.notes != '\0') out << "\n" << command.notes;
}

}  // namespace android::vus::ctl
