#include "report/output_paths.h"

#ifndef SCANREPORT_OUTPUT_ROOT
#error "SCANREPORT_OUTPUT_ROOT must name the output root"
#endif

const char TRAFFIC_DIR[] = SCANREPORT_OUTPUT_ROOT "traffic/";
const char RANGE_DIR[] = SCANREPORT_OUTPUT_ROOT "range/";
