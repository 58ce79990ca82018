#include "altkyt/Values.h"
