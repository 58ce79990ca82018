#include "altkyt/Stream.h"
