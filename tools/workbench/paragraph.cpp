// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/paragraph.h"

#include "tools/common/text.h"

namespace android::vus::workbench {

void writeParagraph(std::ostream& out, std::string_view label, std::string_view text) {
    const std::string safe = printable(std::string(text));
    const std::string start = printable(std::string(label));
    const std::string indent(character_count(start), ' ');
    std::string line = start;
    bool empty = true;
    for (size_t at = 0; at < safe.size();) {
        const size_t end = std::min(safe.find(' ', at), safe.size());
        const std::string word = safe.substr(at, end - at);
        at = end + 1;
        if (!empty && character_count(line) + 1 + character_count(word) > kLineWidth) {
            out << line << "\n";
            line = indent;
            empty = true;
        }
        line += (empty ? "" : " ") + word;
        empty = false;
    }
    out << line << "\n";
}

}  // namespace android::vus::workbench
