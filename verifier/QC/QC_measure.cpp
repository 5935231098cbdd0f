#include "QC/QC_measure.h"
