// SPDX-License-Identifier: Apache-2.0
//
// Report descriptors of devices that people plug in.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace android::vus::hotplug {

// From hexadecimal digits; blanks are for the reader.
inline std::vector<uint8_t> Bytes(const std::string& hexadecimal) {
    std::vector<uint8_t> bytes;
    std::string digits;
    for (const char letter : hexadecimal) {
        if (letter == ' ') continue;
        digits += letter;
        if (digits.size() < 2) continue;
        bytes.push_back(static_cast<uint8_t>(std::stoi(digits, nullptr, 16)));
        digits.clear();
    }
    return bytes;
}

inline std::vector<uint8_t> operator+(std::vector<uint8_t> one, const std::vector<uint8_t>& other) {
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

inline const std::vector<uint8_t> kBootKeyboard =
        Bytes("0501 0906 a101 0507 19e0 29e7 1500 2501 7501 9508 8102 9501 7508 8103 9506 7508 1500"
              "2565 0507 1900 2965 8100 c0");
inline const std::vector<uint8_t> kBootMouse =
        Bytes("0501 0902 a101 0901 a100 0509 1901 2903 1500 2501 7501 9503 8102 7505 9501 8101 0501"
              "0930 0931 1581 257f 7508 9502 8106 c0 c0");
inline const std::vector<uint8_t> kMediaKeys =
        Bytes("050c 0901 a101 8503 1500 26ff03 1900 2aff03 7510 9501 8100 c0");
inline const std::vector<uint8_t> kGamepad = Bytes(
        "0501 0905 a101 0509 1901 290c 1500 2501 7501 950c 8102 0501 0930 0931 0932 0935 26ff00"
        "7508 9504 8102 c0");
inline const std::vector<uint8_t> kTouchscreen =
        Bytes("050d 0904 a101 0922 a102 0942 1500 2501 7501 9501 8102 9507 8103 0951 7508 9501 8102"
              "0501 26ff0f 7510 0930 8102 0931 8102 c0 c0");
inline const std::vector<uint8_t> kVendorsOwn =
        Bytes("0600ff 0901 a101 1500 26ff00 7508 9540 0901 8102 9540 0901 9102 c0");
// Called a mouse, and nothing in it is one's; called a joystick, and there is no button on it.
inline const std::vector<uint8_t> kMouseInNameOnly =
        Bytes("0501 0902 a101 0600ff 0901 1500 26ff00 7508 9540 8102 c0");
inline const std::vector<uint8_t> kAxesWithoutButtons =
        Bytes("0501 0904 a101 0930 0931 1500 26ff00 7508 9502 8102 c0");
// Android passes them over, and a desktop moves, clicks and points by them.
inline const std::vector<uint8_t> kMouseWithoutLeftButton =
        Bytes("0501 0902 a101 0509 0902 1500 2501 7501 9501 8102 9507 8103 0501 0930 0931 1581 257f"
              "7508 9502 8106 c0");
inline const std::vector<uint8_t> kLeftButtonAlone =
        Bytes("0501 0901 a101 0509 0901 1500 2501 7501 9501 8102 9507 8103 c0");
inline const std::vector<uint8_t> kHoveringPen =
        Bytes("050d 0902 a101 0932 1500 2501 7501 9501 8102 9507 8103 0501 0930 0931 26ff7f 7510"
              "9502 8102 050d 0930 26ff03 9501 8102 c0");
inline const std::vector<uint8_t> kSecurityKey = Bytes(
        "06d0f1 0901 a101 0920 1500 26ff00 7508 9540 8102 0921 1500 26ff00 7508 9540 9102 c0");

}  // namespace android::vus::hotplug
