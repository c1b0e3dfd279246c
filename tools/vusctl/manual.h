// SPDX-License-Identifier: Apache-2.0
//
// The part of vusctl's manual page that the table of commands knows.

#pragma once

#include <string>

namespace android::vus::ctl {

// The sections SYNOPSIS and DESCRIPTION of docs/man/vusctl.1, in mdoc(7)'s language: each sentence
// begins a line, and no line is longer than 80 characters.
std::string manual_synopsis();

}  // namespace android::vus::ctl
