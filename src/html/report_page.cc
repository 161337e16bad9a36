// The page is PHP that the web pages run: the rows themselves stay in each
// day's report.txt, so a range page is only include lines, and a day's
// rows are written once however many range pages show them.
#include "html/report_page.h"

#include "io/output_paths.h"

void write_report_page_head(OutputFile& php, DateStamp start_date,
                            DateStamp end_date, bool is_range) {
  char first[DISPLAY_DATE_SIZE];
  char last[DISPLAY_DATE_SIZE];
  format_stamp(start_date, first);
  format_stamp(end_date, last);
  write_line(php,
             "<table class=tabledata  border=1  cellspacing=1 cellpadding=4 "
             "align=\"center\" style=\"font-size:9pt\" valign=top >");
  php << "<tr><td nowrap colspan='9' align='center'><b>Report Table ";
  if (is_range) {
    php << "from " << first << " to " << last;
  } else {
    php << "as on " << first;
  }
  php.end_line();
  write_line(php, "<tr bgcolor='#AACCDD'>");
  write_line(php, "<th align='left'><input type='checkbox' id='selall'></th>");
  write_line(php, "<th align='left' >Date/Time</th>");
  write_line(php, "<th align='left' >Client</th>");
  write_line(php, "<th align='left' >File</th>");
  write_line(php, "<th align='left' >Result</th>");
  write_line(php, "<th align='left' >Virus/Remark</th>");
  write_line(php, "<th align='left' >Action</th>");
  write_line(php, "<th align='left' >Quarantine</th>");
  write_line(php, "</tr>");
}

void write_range_day_include(OutputFile& php, DateStamp day) {
  php << "<?php include(\"" << TRAFFIC_DIR << day << "/report.txt\") ?>\n";
}

void write_single_day_include(OutputFile& php, DateStamp day) {
  // The doubled slash is what existing pages have always been given.
  php << "<?php include(\"" << TRAFFIC_DIR << "/" << day << "/report.txt\") ?>";
}

void write_report_page_end(OutputFile& php) { write_line(php, "</table>"); }
