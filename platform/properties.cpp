// SPDX-License-Identifier: Apache-2.0
//
// The functions of cutils/properties.h, which Debian's libcutils declares and does not
// define, over the property store. Their results are those of Android's libcutils.

#include <errno.h>
#include <inttypes.h>

#include <initializer_list>
#include <limits>
#include <string>

#include <android-base/errno_restorer.h>
#include <cutils/properties.h>

#include "platform/property_store.h"

namespace {

using android::vus::platform::SystemProperties;

// A property that is unset and one that is set to nothing read alike.
std::string ReadProperty(const char* key) {
    return SystemProperties().Get(key).value_or("");
}

// strtoimax takes decimal, octal (0) and hexadecimal (0x), and stops at what is no digit.
intmax_t ReadInteger(const char* key, intmax_t lowest, intmax_t highest, intmax_t fallback) {
    if (!key) return fallback;
    android::base::ErrnoRestorer restorer;
    std::string text = ReadProperty(key);
    char* end = nullptr;
    errno = 0;
    intmax_t value = strtoimax(text.c_str(), &end, 0);
    bool valid = errno == 0 && end != text.c_str() && value >= lowest && value <= highest;
    return valid ? value : fallback;
}

bool IsOneOf(const std::string& text, std::initializer_list<const char*> words) {
    for (const char* word : words) {
        if (text == word) return true;
    }
    return false;
}

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
    std::string text = ReadProperty(key);
    if (text.empty() && default_value) text = default_value;
    size_t length = text.copy(value, PROPERTY_VALUE_MAX - 1);
    value[length] = '\0';
    return static_cast<int>(length);
}

int property_set(const char* key, const char* value) {
    return SystemProperties().Set(key, value ? value : "").empty() ? 0 : -1;
}

int8_t property_get_bool(const char* key, int8_t default_value) {
    if (!key) return default_value;
    std::string text = ReadProperty(key);
    if (IsOneOf(text, {"0", "n", "no", "false", "off"})) return false;
    if (IsOneOf(text, {"1", "y", "yes", "true", "on"})) return true;
    return default_value;
}

int64_t property_get_int64(const char* key, int64_t default_value) {
    return ReadInteger(key, std::numeric_limits<int64_t>::min(),
                       std::numeric_limits<int64_t>::max(), default_value);
}

int32_t property_get_int32(const char* key, int32_t default_value) {
    return static_cast<int32_t>(ReadInteger(key, std::numeric_limits<int32_t>::min(),
                                            std::numeric_limits<int32_t>::max(), default_value));
}
