#include "scan/cScanner.h"

void cScanner::DoScan() {}

void cScanner::gotUnitsFromAmbrelis(const host::Ref<cAmbrelisCommand>&) {}

void cScanner::unitDeleted(const host::Ref<cAmbrelisCommand>&) {}
