// SPDX-License-Identifier: Apache-2.0

#include "android/vus/class_names.h"

#include <algorithm>

namespace android::vus {

namespace {

constexpr std::string_view kNoName = " ";
constexpr uint32_t kSourceClassBits = 0xFF;

const ClassName* rowOf(int32_t code) {
    const auto row = std::find_if(kClassNames.begin(), kClassNames.end(),
                                  [code](const ClassName& each) { return each.code == code; });
    return row == kClassNames.end() ? nullptr : &*row;
}

}  // namespace

uint32_t classCode(std::string_view name) {
    const auto row = std::find_if(kClassNames.begin(), kClassNames.end(),
                                  [name](const ClassName& each) { return each.name == name; });
    return row == kClassNames.end() ? kNoClassCode : static_cast<uint32_t>(row->code);
}

std::string_view className(int32_t code) {
    const ClassName* row = rowOf(code);
    return row == nullptr ? kNoName : row->name;
}

bool isRestrictedClass(int32_t code) {
    return std::find(kRestrictedClasses.begin(), kRestrictedClasses.end(), code) !=
           kRestrictedClasses.end();
}

InputSources inputSourcesOf(int32_t sourceBits) {
    InputSources found;
    found.bits = static_cast<int32_t>(static_cast<uint32_t>(sourceBits) & ~kSourceClassBits);
    found.single = found.bits >= kFirstInputSource && rowOf(found.bits) != nullptr;
    if (found.single) {
        found.sources = {found.bits};
        return found;
    }
    for (const ClassName& row : kClassNames) {
        const bool isSource = row.code >= kFirstInputSource;
        if (isSource && (row.code & ~found.bits) == 0) found.sources.push_back(row.code);
    }
    return found;
}

}  // namespace android::vus
