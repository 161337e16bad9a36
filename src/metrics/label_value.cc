// The shown form follows the console's rule for names (web/text.php), so a
// name reads the same on the dashboard as on the host's own page; the
// console marks a shown byte with markup, which a label value cannot
// carry, so here a backslash is escaped too. Only then is the value
// escaped for the exposition format, whose three escapes are its own.
#include "metrics/label_value.h"

#include <cstdint>

namespace {

// The length of the valid UTF-8 sequence at the start of `text`, or 0
// (RFC 3629: no overlong forms, no surrogates, nothing above U+10FFFF).
size_t utf8_length(std::string_view text) {
  auto byte = [&text](size_t i) {
    return i < text.size() ? static_cast<uint8_t>(text[i]) : 0;
  };
  auto tail = [&byte](size_t i) { return byte(i) >= 0x80 && byte(i) <= 0xBF; };
  const uint8_t lead = byte(0);
  const uint8_t second = byte(1);
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return tail(1) ? 2 : 0;
  if (lead >= 0xE0 && lead <= 0xEF) {
    const bool second_ok = lead == 0xE0   ? second >= 0xA0 && tail(1)
                           : lead == 0xED ? second >= 0x80 && second <= 0x9F
                                          : tail(1);
    return second_ok && tail(2) ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    const bool second_ok = lead == 0xF0   ? second >= 0x90 && tail(1)
                           : lead == 0xF4 ? second >= 0x80 && second <= 0x8F
                                          : tail(1);
    return second_ok && tail(2) && tail(3) ? 4 : 0;
  }
  return 0;
}

// U+202A to U+202E and U+2066 to U+2069: they reorder the text around
// them, so a name could show as another.
bool is_bidirectional_control(std::string_view character) {
  if (character.size() != 3 || character[0] != '\xE2') return false;
  const auto second = static_cast<uint8_t>(character[1]);
  const auto third = static_cast<uint8_t>(character[2]);
  return (second == 0x80 && third >= 0xAA && third <= 0xAE) ||
         (second == 0x81 && third >= 0xA6 && third <= 0xA9);
}

bool is_shown_as_itself(std::string_view character) {
  if (character.size() == 1) {
    const char c = character[0];
    return c == '\t' || (c >= 0x20 && c <= 0x7E && c != '\\');
  }
  return !character.empty() && !is_bidirectional_control(character);
}

void append_byte_escape(std::string& out, uint8_t byte) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  out += "\\x";
  out += kHex[byte >> 4];
  out += kHex[byte & 0xF];
}

uint32_t fnv1a(std::string_view bytes) {
  uint32_t hash = 2166136261u;
  for (char c : bytes) {
    hash = (hash ^ static_cast<uint8_t>(c)) * 16777619u;
  }
  return hash;
}

void append_hex32(std::string& out, uint32_t value) {
  static constexpr char kHex[] = "0123456789abcdef";
  for (int shift = 28; shift >= 0; shift -= 4)
    out += kHex[(value >> shift) & 0xF];
}

}  // namespace

std::string shown_label_value(std::string_view name) {
  // Room for the marker of a cut value: "...#" and eight hex digits.
  constexpr size_t kCutLength = LONGEST_LABEL_VALUE - 12;
  std::string shown;
  size_t cut_at = 0;  // the last character boundary within kCutLength
  for (std::string_view rest = name; !rest.empty();) {
    const size_t length = utf8_length(rest);
    const std::string_view character = rest.substr(0, length);
    if (is_shown_as_itself(character)) {
      shown.append(character);
      rest.remove_prefix(length);
    } else {
      append_byte_escape(shown, static_cast<uint8_t>(rest[0]));
      rest.remove_prefix(1);
    }
    if (shown.size() <= kCutLength) cut_at = shown.size();
    if (shown.size() > LONGEST_LABEL_VALUE) break;
  }
  if (shown.size() > LONGEST_LABEL_VALUE) {
    shown.resize(cut_at);
    shown += "...#";
    append_hex32(shown, fnv1a(name));
  }
  return shown;
}

void append_escaped_label_value(std::string& out, std::string_view value) {
  for (char c : value) {
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '"') {
      out += "\\\"";
    } else if (c == '\n') {
      out += "\\n";
    } else {
      out += c;
    }
  }
}
