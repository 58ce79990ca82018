#include "altkyt/Message.h"
