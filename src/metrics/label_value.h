// Names from the scan log as Prometheus label values. A virus name is
// chosen by whoever wrote the malware: whatever its bytes, it must stay one
// label value of one series, readable, and tell apart from every other
// name.
#ifndef SCANREPORT_METRICS_LABEL_VALUE_H_
#define SCANREPORT_METRICS_LABEL_VALUE_H_

#include <cstddef>
#include <string>
#include <string_view>

// Longest label value shown_label_value returns, in bytes.
inline constexpr size_t LONGEST_LABEL_VALUE = 200;

// `name` as valid UTF-8 text, as the console shows names: each byte that
// is not part of valid UTF-8, a control character other than tab (line
// feed included), a bidirectional embedding, override or isolate, and a
// backslash itself is written as \xNN (two upper-case hex digits), so
// every backslash in the result starts such an escape and different names
// give different values. A result longer than LONGEST_LABEL_VALUE is cut
// at a character boundary and ends in "...#" and eight hex digits of a
// hash of the whole name, so that names sharing a long beginning stay
// apart.
std::string shown_label_value(std::string_view name);

// Appends `value` as the text exposition format writes a label value
// between its double quotes: backslash, double quote and line feed
// escaped as \\, \" and \n.
void append_escaped_label_value(std::string& out, std::string_view value);

#endif  // SCANREPORT_METRICS_LABEL_VALUE_H_
