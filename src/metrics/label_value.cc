// The shown form follows the console's rule for names (web/text.php), so a
// name reads the same on the dashboard as on the host's own page; the
// console marks a shown byte with markup, which a label value cannot
// carry, so here a backslash is escaped too. Only then is the value
// escaped for the exposition format, whose three escapes are its own.
#include "metrics/label_value.h"

#include <cstdint>

namespace {

// What a lead byte allows: the sequence's length (0: the byte never
// starts one) and the range of its second byte, narrower than 80 to BF
// where that excludes overlong forms, surrogates and code points above
// U+10FFFF (RFC 3629).
struct LeadRule {
  size_t length;
  uint8_t second_low;
  uint8_t second_high;
};

LeadRule rule_for(uint8_t lead) {
  if (lead < 0x80) return {1, 0, 0};
  if (lead >= 0xC2 && lead <= 0xDF) return {2, 0x80, 0xBF};
  if (lead == 0xE0) return {3, 0xA0, 0xBF};
  if (lead == 0xED) return {3, 0x80, 0x9F};
  if (lead >= 0xE1 && lead <= 0xEF) return {3, 0x80, 0xBF};
  if (lead == 0xF0) return {4, 0x90, 0xBF};
  if (lead >= 0xF1 && lead <= 0xF3) return {4, 0x80, 0xBF};
  if (lead == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

// The length of the valid UTF-8 sequence at the start of `text`, or 0.
size_t utf8_length(std::string_view text) {
  const LeadRule rule = rule_for(static_cast<uint8_t>(text[0]));
  if (rule.length <= 1) return rule.length;
  if (text.size() < rule.length) return 0;
  const auto second = static_cast<uint8_t>(text[1]);
  if (second < rule.second_low || second > rule.second_high) return 0;
  for (size_t i = 2; i < rule.length; ++i) {
    const auto tail = static_cast<uint8_t>(text[i]);
    if (tail < 0x80 || tail > 0xBF) return 0;
  }
  return rule.length;
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
