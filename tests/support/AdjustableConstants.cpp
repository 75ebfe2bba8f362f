#include "AdjustableConstants.h"

unsigned int arenaSize = 64u << 20;
float boxMargin = 0.001f;
