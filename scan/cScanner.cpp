#include "scan/cScanner.h"

void cScanner::DoScan() {}
