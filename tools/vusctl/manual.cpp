// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/manual.h"

#include <ctype.h>

#include <algorithm>
#include <ostream>
#include <sstream>

#include "tools/vusctl/command.h"
#include "tools/vusctl/help.h"

namespace android::vus::ctl {

namespace {

// A line of text begins no request, and an option's hyphens are no dashes.
std::string man_line(const std::string& text) {
    std::string clean;
    for (size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        const bool of_option =
                c == '-' && (text.compare(at, 2, "--") == 0 || (at > 0 && text[at - 1] == '-'));
        if (of_option) clean += '\\';
        clean += c == '\\' ? std::string("\\e") : std::string(1, c);
    }
    if (!clean.empty() && (clean[0] == '.' || clean[0] == '\'')) clean = "\\&" + clean;
    return clean;
}

bool is_end(char c) {
    return c == '.' || c == '?' || c == '!';
}

// Every sentence begins a line, as mdoc(7) wants it, and no line is long.
std::string man_text(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::istringstream words(text);
    std::string lines, line;
    auto end_line = [&] {
        if (!line.empty()) lines += man_line(line) + "\n";
        line.clear();
    };
    for (std::string word; words >> word;) {
        if (line.size() + word.size() > 72) end_line();
        line += (line.empty() ? "" : " ") + word;
        if (word.size() > 1 && is_end(word.back())) end_line();
    }
    end_line();
    return lines;
}

// A summary as a sentence.
std::string man_summary(std::string text) {
    text[0] = static_cast<char>(toupper(static_cast<unsigned char>(text[0])));
    if (!is_end(text.back())) text += '.';
    return man_text(text);
}

std::string man_option(const Option& option) {
    std::string words = std::string("Fl ") + (option.name + 1);
    if (option.value != nullptr) words += std::string(" Ar ") + option.value;
    return words;
}

// "Ar FILE", or "Op Cm test" of what may be left out and stands for itself.
std::string man_arguments(const Command& command) {
    std::string words = command.arguments;
    if (words.empty()) return "";
    std::string begin;
    if (words[0] == '[') {
        begin = "Op ";
        words = words.substr(1, words.size() - 2);
    }
    return begin + (islower(static_cast<unsigned char>(words[0])) != 0 ? "Cm " : "Ar ") + words;
}

void print_man_options(const Command& command, std::ostream& page) {
    if (command.options.empty()) return;
    page << ".Bl -tag -width Ds -compact\n";
    for (const Option& option : command.options) {
        page << ".It " << man_option(option) << "\n" << man_text(option.help);
    }
    page << ".El\n";
}

}  // namespace

std::string manual_synopsis() {
    std::ostringstream page;
    page << ".Sh SYNOPSIS\n";
    for (const Command& command : commands()) {
        page << ".Nm\n.Cm " << command.path() << "\n";
        if (*command.arguments != '\0') page << "." << man_arguments(command) << "\n";
        for (const Option& option : command.options) {
            page << (option.required ? "." : ".Op ") << man_option(option) << "\n";
        }
    }
    page << ".Nm\n.Fl -version\n";
    page << ".Sh DESCRIPTION\n" << man_text(kDescription) << ".Bl -tag -width Ds\n";
    for (const Command& command : commands()) {
        const std::string arguments = man_arguments(command);
        page << ".It Cm " << command.path() << (arguments.empty() ? "" : " ") << arguments << "\n"
             << man_summary(command.summary) << man_text(command.notes);
        print_man_options(command, page);
    }
    page << ".It Fl -version\nPrint the version.\n.El\n";
    return page.str();
}

}  // namespace android::vus::ctl
