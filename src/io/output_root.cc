// The output root alone, so that the tests, benchmarks and fuzz targets can
// link the same core against a root inside their build tree.
#include "io/output_paths.h"

#ifndef SCANREPORT_OUTPUT_ROOT
#error "SCANREPORT_OUTPUT_ROOT must name the output root"
#endif

const char OUTPUT_ROOT[] = SCANREPORT_OUTPUT_ROOT;
const char TRAFFIC_DIR[] = SCANREPORT_OUTPUT_ROOT "traffic/";
const char RANGE_DIR[] = SCANREPORT_OUTPUT_ROOT "range/";
