#include "store/CXML.h"
