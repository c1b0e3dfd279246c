// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/command.h"

#include <algorithm>

#include <android-base/strings.h>

namespace android::vus::ctl {

namespace {

const Option* find_option(const std::vector<Option>& options, const std::string& word) {
    const auto option = std::find_if(options.begin(), options.end(),
                                     [&word](const Option& each) { return word == each.name; });
    return option == options.end() ? nullptr : &*option;
}

// Takes words apart, one after the other.
class CallReader {
  public:
    CallReader(const Command& command, std::string* error) : command_(command), error_(*error) {}

    bool read(const Words& words) {
        for (size_t at = 0; at < words.size(); ++at) {
            const std::string& word = words[at];
            if (only_plain_ || word == "-" || !base::StartsWith(word, "-")) {
                call.plain.push_back(word);
            } else if (word == "--") {
                only_plain_ = true;
            } else if (!read_option(words, &at)) {
                return false;
            }
        }
        if (call.plain.size() >= command_.least && call.plain.size() <= command_.most) return true;
        return takes();
    }

    Call call;

  private:
    bool takes() {
        error_ = command_.path() + " takes " + command_.takes;
        return false;
    }

    bool read_option(const Words& words, size_t* at) {
        const std::string& word = words[*at];
        const Option* const option = find_option(command_.options, word);
        const bool flag = option != nullptr && option->value == nullptr;
        // Where there is nothing to choose from, the whole choice is the better answer.
        if (option == nullptr && command_.options.size() < 2) return takes();
        if (flag && command_.options.size() < 2 && call.has(word)) return takes();
        if (option == nullptr) {
            error_ = "unknown argument: " + word;
            return false;
        }
        if (!flag && *at + 1 == words.size()) {
            error_ = word + " needs a value";
            return false;
        }
        call.options.emplace_back(word, flag ? "" : words[++*at]);
        return true;
    }

    const Command& command_;
    std::string& error_;
    bool only_plain_ = false;
};

}  // namespace

bool Call::has(const std::string& name) const {
    return value(name).has_value();
}

std::optional<std::string> Call::value(const std::string& name) const {
    const Words all = values(name);
    if (all.empty()) return std::nullopt;
    return all.back();
}

Words Call::values(const std::string& name) const {
    Words found;
    for (const auto& [option, value] : options) {
        if (option == name) found.push_back(value);
    }
    return found;
}

Words Call::device_words() const {
    const std::vector<Option> of_devices = device_options();
    Words words;
    for (const auto& [name, value] : options) {
        const Option* const option = find_option(of_devices, name);
        if (option == nullptr) continue;
        words.push_back(name);
        if (option->value != nullptr) words.push_back(value);
    }
    return words;
}

std::string Command::path() const {
    return *sub == '\0' ? name : std::string(name) + " " + sub;
}

std::vector<Option> device_options() {
    return {
            {"--usb", nullptr, "a USB device (the default)"},
            {"--input", nullptr, "an input device"},
            {"--id", "N", "the id under which the daemon lists it"},
            {"--name", "TEXT", "its name"},
            {"--class", "N", "its class; of an input device: its source bits"},
            {"--interfaces", "N,N", "the classes of its interfaces, in their order"},
            {"--vid", "N", "its vendor, decimal, or hexadecimal with 0x"},
            {"--pid", "N", "its product, likewise"},
            {"--vendor-hid", nullptr, "a USB device with an HID that sends no input events"},
    };
}

std::vector<Option> operator+(std::vector<Option> options, const std::vector<Option>& more) {
    options.insert(options.end(), more.begin(), more.end());
    return options;
}

std::optional<Call> parse_call(const Command& command, const Words& words, std::string* error) {
    CallReader reader(command, error);
    if (!reader.read(words)) return std::nullopt;
    return reader.call;
}

}  // namespace android::vus::ctl
