#include "altkyt/Error.h"
