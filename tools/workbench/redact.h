// SPDX-License-Identifier: Apache-2.0
//
// Takes out of devices what tells whose they are: names and serial numbers. Each becomes a name
// with a number ("serial 2"), the same for the same text within one recording. A hash would let
// whoever has a guess confirm it; a serial number has few enough values to guess them all.

#pragma once

#include <map>
#include <string>

#include "tools/workbench/device.h"

namespace android::vus::workbench {

class Redaction {
  public:
    Device of(Device device);

  private:
    std::string replaced(const char* what, const std::string& text);

    std::map<std::string, std::map<std::string, std::string>> replacements_;
};

}  // namespace android::vus::workbench
