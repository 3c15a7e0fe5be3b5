// ZEV stand-in over libgcrypt (placeholder until the implementation lands).
#include "zev.h"
