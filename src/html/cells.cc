// Texts from the log go into the cells byte for byte, unescaped: existing
// pages depend on those bytes, and they treat the files as untrusted text.
#include "html/cells.h"

// Last, so that its POSIX basename is not redeclared by <cstring>.
#include <libgen.h>

void write_row_opening(OutputFile& out, bool& shade, int32_t number) {
  out << "<tr bgcolor='" << (shade ? "#cfe1fd" : "#bbccdd") << "'>";
  out.end_line();
  shade = !shade;
  out << "<td align='left'><input type='checkbox' id='chk_sel_" << number
      << "'></td>";
  out.end_line();
}

void write_text_cell(OutputFile& out, std::string_view text) {
  out << "<td align='left'>" << text << "</td>";
  out.end_line();
}

void write_date_time_cell(OutputFile& out, std::string_view date,
                          std::string_view time) {
  out << "<td align='left'>" << date << '/' << time << "</td>";
  out.end_line();
}

void write_path_cell(OutputFile& out, const std::string& path) {
  out << "<td align='left' title='" << path << "'>" << path_basename(path)
      << "</td>";
  out.end_line();
}

std::string path_basename(const std::string& path) {
  std::string copy = path;  // basename may write into what it is given
  return basename(copy.data());
}
