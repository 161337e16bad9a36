// Where reports are written. The root is fixed when the tool is built.
#ifndef SCANREPORT_REPORT_OUTPUT_PATHS_H_
#define SCANREPORT_REPORT_OUTPUT_PATHS_H_

// Both end in a slash. A day's directory is TRAFFIC_DIR followed directly
// by the decimal DateStamp; range reports go into RANGE_DIR itself.
extern const char TRAFFIC_DIR[];
extern const char RANGE_DIR[];

// Paths are formed in buffers of this size.
inline constexpr int PATH_BUFFER_SIZE = 1024;

#endif  // SCANREPORT_REPORT_OUTPUT_PATHS_H_
