// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/client.h"

#include <algorithm>
#include <utility>

#include "tools/common/text.h"
#include "tools/vusctl/help.h"

#ifndef VUS_VERSION
#error "the build has to define VUS_VERSION"
#endif

namespace android::vus::ctl {

namespace {

bool is_help(const std::string& word) {
    return word == "-h" || word == "--help";
}

Words behind(const Words& words, size_t count) {
    return {words.begin() + static_cast<Words::difference_type>(std::min(count, words.size())),
            words.end()};
}

// The command that the words begin with, and how many of them name it.
std::pair<const Command*, size_t> find_command(const Words& words) {
    for (const Command& command : commands()) {
        if (words[0] != command.name) continue;
        if (*command.sub == '\0') return {&command, 1};
        if (words.size() > 1 && words[1] == command.sub) return {&command, 2};
    }
    return {nullptr, 0};
}

// "policy takes: show, check, or set", if the word has sub-commands.
std::string choice_of(const std::string& name) {
    Words subs;
    for (const Command& command : commands()) {
        if (name == command.name) subs.push_back(command.sub);
    }
    if (subs.empty()) return "";
    std::string text = name + " takes: " + subs[0];
    for (size_t at = 1; at < subs.size(); ++at) {
        text += (at + 1 == subs.size() ? " or " : ", ") + subs[at];
    }
    return text;
}

}  // namespace

Client::Client(std::function<FoundService()> find, std::ostream& out, std::ostream& err, int out_fd,
               std::function<void(int fd)> wait, Terminal terminal)
      : context_{std::move(find), out, err, out_fd, std::move(wait), terminal} {}

int Client::Run(const Words& words) {
    if (words.empty()) {
        print_help(context_.err);
        return kUsage;
    }
    if (words == Words{"--version"}) {
        context_.out << "vusctl " VUS_VERSION "\n";
        return kDone;
    }
    const Words named = words[0] == "help" ? behind(words, 1) : words;
    if (named.empty() || is_help(named[0])) {
        print_help(context_.out);
        return kDone;
    }
    const auto [command, used] = find_command(named);
    if (command == nullptr) return unknown(named);
    const Words rest = behind(named, used);
    if (words[0] == "help" || std::any_of(rest.begin(), rest.end(), is_help)) {
        print_help(*command, context_.out);
        return kDone;
    }
    return run(*command, rest);
}

int Client::unknown(const Words& words) {
    const std::string choice = choice_of(words[0]);
    if (std::any_of(words.begin(), words.end(), is_help) && !choice.empty()) {
        print_help(context_.out);
        return kDone;
    }
    return context_.usage_error(choice.empty() ? "unknown command: " + printable(words[0])
                                               : choice);
}

int Client::run(const Command& command, const Words& words) {
    std::string error;
    const auto call = parse_call(command, words, &error);
    if (!call) return context_.usage_error(printable(error));
    const int status = command.run(context_, *call);
    // A full disk: what was not written must not pass for done.
    if (context_.out.flush()) return status;
    return context_.failed("cannot write the output");
}

}  // namespace android::vus::ctl
