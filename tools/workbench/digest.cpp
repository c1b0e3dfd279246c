// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/digest.h"

#include <dlfcn.h>
#include <stdint.h>

#include <array>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

namespace android::vus::workbench {

namespace {

using Digest = std::array<uint8_t, SHA256_DIGEST_LENGTH>;

#ifdef __ANDROID__
constexpr char kLibrary[] = "libcrypto.so";
#else
constexpr char kLibrary[] = "libcrypto.so.3";
#endif

// The library's function of that name. The library is loaded with the first one that is asked for:
// few commands have a use for it, and its relocations take half as long as all else that vusctl
// does at its start.
template <typename Function>
Function* fromLibrary(const char* name) {
    static void* const library = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
    CHECK(library != nullptr) << dlerror();
    void* const function = dlsym(library, name);
    CHECK(function != nullptr) << dlerror();
    return reinterpret_cast<Function*>(function);
}

const uint8_t* bytesOf(std::string_view text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}

}  // namespace

std::string sha256Base64(std::string_view text) {
    Digest digest;
    fromLibrary<decltype(SHA256)>("SHA256")(bytesOf(text), text.size(), digest.data());
    // Four characters for each three bytes that are begun, and a NUL.
    std::array<uint8_t, (SHA256_DIGEST_LENGTH + 2) / 3 * 4 + 1> base64 = {};
    fromLibrary<decltype(EVP_EncodeBlock)>("EVP_EncodeBlock")(base64.data(), digest.data(),
                                                              static_cast<int>(digest.size()));
    return reinterpret_cast<const char*>(base64.data());
}

std::optional<KeyedHash> KeyedHash::random() {
    std::string key(kShortestKey, '\0');
    auto* const fill = fromLibrary<decltype(RAND_bytes)>("RAND_bytes");
    if (fill(reinterpret_cast<uint8_t*>(key.data()), static_cast<int>(key.size())) != 1) {
        return std::nullopt;
    }
    return KeyedHash(std::move(key));
}

std::string KeyedHash::of(std::string_view text) const {
    Digest digest = {};
    unsigned int length = 0;
    const EVP_MD* const sha256 = fromLibrary<decltype(EVP_sha256)>("EVP_sha256")();
    const auto* done =
            fromLibrary<decltype(HMAC)>("HMAC")(sha256, key_.data(), static_cast<int>(key_.size()),
                                                bytesOf(text), text.size(), digest.data(), &length);
    // A text that was not hashed must not be shown for one that was.
    CHECK(done != nullptr && length == digest.size());
    std::string hash;
    for (size_t at = 0; at < digest.size() / 2; ++at) {
        hash += base::StringPrintf("%02x", digest[at]);
    }
    return hash;
}

}  // namespace android::vus::workbench
