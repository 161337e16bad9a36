// The summary page is a fragment that the web pages embed as it is: four
// tables and a "<BR>" after each, one line at a time.
#include "html/summary_page.h"

#include <cstdio>

#include "report/output_paths.h"

namespace {

void write_line(OutputFile& out, std::string_view text) {
  out << text;
  out.end_line();
}

void write_count_cell(OutputFile& out, const char* opening, int32_t count) {
  out << opening << count << "</TD>";
  out.end_line();
}

int32_t wrapping_sum(std::initializer_list<int32_t> counts) {
  uint32_t sum = 0;
  for (int32_t count : counts) sum += static_cast<uint32_t>(count);
  return static_cast<int32_t>(sum);
}

}  // namespace

int write_summary_page(const RankedList& client_list,
                       const RankedList& virus_list,
                       const RankedList& file_list, const SummaryTally& tally,
                       const char* out_dir, DateStamp start_date,
                       DateStamp end_date) {
  char path[PATH_BUFFER_SIZE];
  std::snprintf(path, sizeof path, "%s/summary.htm", out_dir);
  OutputFile out;
  if (!out.open(path)) return -1;
  write_summary_table(out, tally, "Summary", start_date, end_date);
  write_line(out, "<BR>");
  write_top_table(out, virus_list, "Top 10 Virus", "Virus");
  write_line(out, "<BR>");
  write_top_table(out, client_list, "Top 10 Client", "Client");
  write_line(out, "<BR>");
  write_top_table(out, file_list, "Top 10 File", "File");
  write_line(out, "<BR>");
  out.close();
  return 0;
}

void write_summary_table(OutputFile& out, const SummaryTally& tally,
                         const char* anchor, DateStamp start_date,
                         DateStamp end_date) {
  char first[DISPLAY_DATE_SIZE];
  char last[DISPLAY_DATE_SIZE];
  format_stamp(start_date, first);
  format_stamp(end_date, last);
  auto count = [&tally](const char* key) { return lookup_count(tally, key); };
  int32_t infected = wrapping_sum({count("quarantined"), count("deleted"),
                                   count("denied"), count("acterror")});
  int32_t scanned = wrapping_sum({infected, count("clean"), count("cured")});

  write_line(out,
             "<TABLE WIDTH='90%' BORDER='1' CLASS='tabledata' ALIGN='center' "
             "CELLSPACING='2'>");
  out << "<TR><TH COLSPAN='8'><A NAME='" << anchor;
  if (end_date == 0 || end_date == start_date) {
    out << "'> Summary Report on " << first;
  } else {
    out << "'> Summary Report    "
        << "   from  " << first << "   to  " << last;
  }
  out << "</A></TH></TR>";
  out.end_line();
  write_line(out, "<TR>");
  write_count_cell(out, "<TD COLSPAN='6'>Scanned ", scanned);
  write_line(out, "<TD>Excluded</TD>");
  write_line(out, "<TD>Errors</TD>");
  write_line(out, "</TR>");
  write_line(out, "<TR>");
  write_line(out, "<TD>Clean</TD>");
  write_line(out, "<TD>Cured</TD>");
  write_count_cell(out, "<TD COLSPAN='4'>Infected ", infected);
  write_count_cell(out, "<TD ROWSPAN='3'>", count("excluded"));
  write_count_cell(out, "<TD ROWSPAN='3'>", count("error"));
  write_line(out, "</TR>");
  write_line(out, "<TR>");
  write_count_cell(out, "<TD ROWSPAN='2'>", count("clean"));
  write_count_cell(out, "<TD ROWSPAN='2'>", count("cured"));
  write_line(out, "<TD>Quarantined</TD>");
  write_line(out, "<TD>Deleted</TD>");
  write_line(out, "<TD>Access Denied</TD>");
  write_line(out, "<TD>Action Error</TD>");
  write_line(out, "</TR>");
  write_line(out, "<TR>");
  write_count_cell(out, "<TD>", count("quarantined"));
  write_count_cell(out, "<TD>", count("deleted"));
  write_count_cell(out, "<TD>", count("denied"));
  write_count_cell(out, "<TD>", count("acterror"));
  write_line(out, "</TR>");
  write_line(out, "</TABLE>");
}

void write_top_table(OutputFile& out, const RankedList& list, const char* title,
                     const char* anchor) {
  write_line(out,
             "<TABLE WIDTH='50%' CLASS='tabledata' BORDER='1' ALIGN='center' "
             "CELLSPACING='2'>");
  write_line(out, "<TR>");
  out << "<TH COLSPAN='3'>"
      << "<A NAME='" << anchor << "'></A>";
  out.end_line();
  out << title << "</TH>";
  out.end_line();
  write_line(out, "</TR>");
  int32_t rank = 1;
  for (auto it = list.begin(); it != list.end() && rank <= 11; ++it, ++rank) {
    if (rank <= 10) {
      write_line(out, "<TR>");
      write_count_cell(out, "<TD WIDTH='5%'>", rank);
      out << "<TD>" << it->name << "</TD>";
      out.end_line();
      write_count_cell(out, "<TD WIDTH='10%' ALIGN='right'>", it->count);
      write_line(out, "</TR>");
    } else {
      write_line(out, "<TR>");
      out << "<TD ALIGN='LEFT' COLSPAN='3'>Few more objects with count "
          << it->count << " follows</TD>";
      out.end_line();
      write_line(out, "</TR>");
    }
  }
  write_line(out, "</TABLE>");
}
