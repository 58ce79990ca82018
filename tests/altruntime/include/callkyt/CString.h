#include "altkyt/Text.h"
