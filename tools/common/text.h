// SPDX-License-Identifier: Apache-2.0
//
// Texts that come from devices, made fit to be passed on.
//
// A device names itself, and may do so with anything: line feeds that forge a line of a dump,
// escapes that rule a terminal, bytes that are no UTF-8 and that binder refuses to carry.
// Stateless; any thread.

#pragma once

#include <stddef.h>

#include <string>

namespace android::vus {

// How many bytes the character of `text` at `at` takes; 0 if what is there is no UTF-8.
size_t utf8_length(const std::string& text, size_t at);

// `text` with U+FFFD for each byte that is no UTF-8.
std::string valid_utf8(const std::string& text);

// `text` as valid UTF-8 with "?" for each control character, those beyond ASCII included.
std::string printable(const std::string& text);

// How many characters a valid text has; a text's width on most terminals.
size_t character_count(const std::string& text);

}  // namespace android::vus
