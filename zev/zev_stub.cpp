// Placeholder until the stand-in lands.
#include "zev.h"
