// SPDX-License-Identifier: Apache-2.0
//
// What shells need to complete vusctl's words, made from the table of commands.

#pragma once

#include <optional>
#include <string>

namespace android::vus::ctl {

// The script for "bash", "zsh" or "fish"; nothing for another shell.
std::optional<std::string> completion_for(const std::string& shell);

}  // namespace android::vus::ctl
