// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/xml_comment.h"

#include "tools/common/text.h"

namespace android::vus::workbench {

namespace {

constexpr size_t kCommentWidth = 60;

}  // namespace

std::string xmlCommentText(const std::string& text) {
    std::string clean = shortened(printable(text), kCommentWidth);
    for (size_t at = clean.find("--"); at != std::string::npos; at = clean.find("--", at)) {
        clean.insert(at + 1, " ");
    }
    if (!clean.empty() && clean.back() == '-') clean += ' ';
    return clean;
}

}  // namespace android::vus::workbench
