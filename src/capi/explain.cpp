#include "capi/walk.h"
