// The pieces that the rows of the report table and of the quarantine page
// share: the opening of a row and its cells. Every piece ends its line.
#ifndef SCANREPORT_HTML_CELLS_H_
#define SCANREPORT_HTML_CELLS_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "io/output_file.h"

// The row's first two lines: "<tr bgcolor='...'>" in "#bbccdd", or in
// "#cfe1fd" when `shade` is set, after which `shade` flips; then the
// checkbox cell with the id "chk_sel_" and `number`.
void write_row_opening(OutputFile& out, bool& shade, int32_t number);

// "<td align='left'>", `text` as it is, "</td>".
void write_text_cell(OutputFile& out, std::string_view text);

// The text cell of `date`, "/" and `time`.
void write_date_time_cell(OutputFile& out, std::string_view date,
                          std::string_view time);

// A cell showing the base name of `path`, with the full path as its title.
void write_path_cell(OutputFile& out, const std::string& path);

// What POSIX basename(3) gives for a copy of `path`: the last component,
// trailing slashes disregarded.
std::string path_basename(const std::string& path);

#endif  // SCANREPORT_HTML_CELLS_H_
