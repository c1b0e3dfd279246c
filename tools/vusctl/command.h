// SPDX-License-Identifier: Apache-2.0
//
// The table of vusctl's commands. A row is all that there is to say of a command: what it is
// called, what words it takes, what each of them means, and the function that runs it. Help,
// completion and the manual's synopsis are made from it; a new command is a new row.

#pragma once

#include <stddef.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/vusctl/arguments.h"
#include "tools/vusctl/context.h"

namespace android::vus::ctl {

struct Option {
    const char* name;   // "--json"
    const char* value;  // what follows it, such as "FILE"; null: nothing does
    const char* help;
    bool required = false;
};

// A command line, taken apart by the command's options.
struct Call {
    Words plain;                                               // what is no option
    std::vector<std::pair<std::string, std::string>> options;  // in their order

    bool has(const std::string& name) const;
    // The value of an option; of one that is given twice the last one. Nothing if it is not given.
    std::optional<std::string> value(const std::string& name) const;
    // Every value of an option that may be given often.
    Words values(const std::string& name) const;
    // The options of device_options() as words again, for parse_device().
    Words device_words() const;
};

struct Command {
    const char* name;
    const char* sub;        // of "policy": its sub-command; "" for others
    const char* arguments;  // for the synopsis, options aside: "FILE"
    size_t least, most;     // how many words that are no options
    std::vector<Option> options;
    const char* takes;    // for the error of a wrong call: "--json or nothing"
    const char* summary;  // one line
    const char* notes;    // more, for the command's own help; lines of at most 80 characters
    int (*run)(Context& context, const Call& call);

    std::string path() const;  // "policy check"
};

// What is asked for as often as one likes.
inline constexpr size_t kAnyNumber = static_cast<size_t>(-1);

// Every command, in the order of the help.
const std::vector<Command>& commands();

// The options by which a device is described.
std::vector<Option> device_options();
// The options of one list behind those of another.
std::vector<Option> operator+(std::vector<Option> options, const std::vector<Option>& more);

// Takes the words behind a command's name apart. With a wrong word, nothing, and `error` says what
// is wrong. Behind the word "--" nothing is an option, and "-" is none.
std::optional<Call> parse_call(const Command& command, const Words& words, std::string* error);

}  // namespace android::vus::ctl
