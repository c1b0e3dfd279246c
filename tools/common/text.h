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

// `text` as valid UTF-8 with "?" for each character that rules how others are shown: the control
// characters, those beyond ASCII included, the marks that turn the direction of a text round, and
// the separators of lines and paragraphs.
std::string printable(const std::string& text);

// A JSON text, which is valid UTF-8, with an escape for each character that printable() replaces:
// in JSON such a character can only be part of a string. Line feeds stay.
std::string json_escaped_controls(const std::string& json);

// What a line of the tools is folded or cut to.
inline constexpr size_t kScreenWidth = 80;

// `text`, which is printable, in at most `width` characters; what is cut off ends in "...".
std::string shortened(const std::string& text, size_t width);

// How many characters a valid text has; a text's width on most terminals.
size_t character_count(const std::string& text);

// `text` in lines of at most `width` characters, each behind `indent` blanks and with a line feed.
// A word that is longer stands on a line of its own.
std::string wrapped(const std::string& text, size_t indent, size_t width);

}  // namespace android::vus
