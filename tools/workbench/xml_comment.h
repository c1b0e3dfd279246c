// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace android::vus::workbench {

// `text`, cut short, as it can stand in a comment of XML, which two hyphens would end. Stateless.
std::string xmlCommentText(const std::string& text);

}  // namespace android::vus::workbench
