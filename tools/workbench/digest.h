// SPDX-License-Identifier: Apache-2.0
//
// Hashes, by libcrypto, which is in Debian and in the Android tree. It is loaded when one is asked
// for; without it the process ends and says so.

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace android::vus::workbench {

// SHA-256 in Base64, as a browser is told which script may run. Stateless; any thread.
std::string sha256Base64(std::string_view text);

// A hash that only the owner of the key can compute: whoever has a guess of a text cannot confirm
// it, however few texts there may be to guess. A plain value; any number of threads may ask one.
class KeyedHash {
  public:
    // A key shorter than a hash is easier to guess than the hash.
    static constexpr size_t kShortestKey = 32;

    explicit KeyedHash(std::string key) : key_(std::move(key)) {}
    // With a key that nobody knows, and that is gone with this object. Nothing if the system has no
    // random bytes.
    static std::optional<KeyedHash> random();

    // HMAC-SHA-256 as 32 hexadecimal digits, half of it: enough that no two texts of a fleet meet.
    std::string of(std::string_view text) const;

  private:
    std::string key_;
};

}  // namespace android::vus::workbench
