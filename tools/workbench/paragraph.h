// SPDX-License-Identifier: Apache-2.0
//
// Text for people, in lines of at most 80 characters, fit for a terminal whatever it holds.
// Stateless.

#pragma once

#include <ostream>
#include <string>
#include <string_view>

namespace android::vus::workbench {

inline constexpr size_t kLineWidth = 80;

// Writes `text` behind `label`, each further line as far in as the label is long. A word that is
// longer than a line stands on one of its own.
void writeParagraph(std::ostream& out, std::string_view label, std::string_view text);

}  // namespace android::vus::workbench
