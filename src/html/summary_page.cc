// The summary page is a fragment that the web pages embed as it is: four
// tables and a "<BR>" after each, one line at a time.
#include "html/summary_page.h"

#include <initializer_list>

#include "io/output_file.h"
#include "io/output_paths.h"

namespace {

void write_count_cell(OutputFile& out, const char* opening, int32_t count) {
  out << opening << count << "</TD>";
  out.end_line();
}

int32_t wrapping_sum(std::initializer_list<int32_t> counts) {
  uint32_t sum = 0;
  for (int32_t count : counts) sum += static_cast<uint32_t>(count);
  return static_cast<int32_t>(sum);
}

void write_summary_title(OutputFile& out, const char* anchor,
                         DateStamp start_date, DateStamp end_date) {
  char first[DISPLAY_DATE_SIZE];
  char last[DISPLAY_DATE_SIZE];
  format_stamp(start_date, first);
  format_stamp(end_date, last);
  out << "<TR><TH COLSPAN='8'><A NAME='" << anchor;
  if (end_date == 0 || end_date == start_date) {
    out << "'> Summary Report on " << first;
  } else {
    out << "'> Summary Report    "
        << "   from  " << first << "   to  " << last;
  }
  out << "</A></TH></TR>";
  out.end_line();
}

// The first two rows: the Scanned total over the Clean, Cured and Infected
// columns, with the excluded and error counts beside them.
void write_total_rows(OutputFile& out, const SummaryTally& tally) {
  auto count = [&tally](const char* key) { return lookup_count(tally, key); };
  int32_t infected = wrapping_sum({count("quarantined"), count("deleted"),
                                   count("denied"), count("acterror")});
  int32_t scanned = wrapping_sum({infected, count("clean"), count("cured")});
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
}

// The last two rows: the clean and cured counts, and the infected records
// by the action taken.
void write_action_rows(OutputFile& out, const SummaryTally& tally) {
  write_line(out, "<TR>");
  write_count_cell(out, "<TD ROWSPAN='2'>", lookup_count(tally, "clean"));
  write_count_cell(out, "<TD ROWSPAN='2'>", lookup_count(tally, "cured"));
  write_line(out, "<TD>Quarantined</TD>");
  write_line(out, "<TD>Deleted</TD>");
  write_line(out, "<TD>Access Denied</TD>");
  write_line(out, "<TD>Action Error</TD>");
  write_line(out, "</TR>");
  write_line(out, "<TR>");
  for (const char* key : {"quarantined", "deleted", "denied", "acterror"}) {
    write_count_cell(out, "<TD>", lookup_count(tally, key));
  }
  write_line(out, "</TR>");
}

// The 8-column table of counts with the Scanned and Infected totals.
void write_summary_table(OutputFile& out, const SummaryTally& tally,
                         const char* anchor, DateStamp start_date,
                         DateStamp end_date) {
  write_line(out,
             "<TABLE WIDTH='90%' BORDER='1' CLASS='tabledata' ALIGN='center' "
             "CELLSPACING='2'>");
  write_summary_title(out, anchor, start_date, end_date);
  write_total_rows(out, tally);
  write_action_rows(out, tally);
  write_line(out, "</TABLE>");
}

void write_ranked_row(OutputFile& out, int32_t rank, const RankedEntry& entry) {
  write_line(out, "<TR>");
  write_count_cell(out, "<TD WIDTH='5%'>", rank);
  out << "<TD>" << entry.name << "</TD>";
  out.end_line();
  write_count_cell(out, "<TD WIDTH='10%' ALIGN='right'>", entry.count);
  write_line(out, "</TR>");
}

// The row that stands for an eleventh entry tied with the tenth.
void write_few_more_row(OutputFile& out, int32_t count) {
  write_line(out, "<TR>");
  out << "<TD ALIGN='LEFT' COLSPAN='3'>Few more objects with count " << count
      << " follows</TD>";
  out.end_line();
  write_line(out, "</TR>");
}

// Ranks 1 to 10 of `list`, and a "few more" row when an 11th entry exists.
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
      write_ranked_row(out, rank, *it);
    } else {
      write_few_more_row(out, it->count);
    }
  }
  write_line(out, "</TABLE>");
}

}  // namespace

int write_summary_page(const RankedList& client_list,
                       const RankedList& virus_list,
                       const RankedList& file_list, const SummaryTally& tally,
                       const char* out_dir, DateStamp start_date,
                       DateStamp end_date) {
  char path[PATH_BUFFER_SIZE];
  if (!run_file_path(out_dir, "summary.htm", path)) return -1;
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
