#include "altkyt/Lists.h"
