// Environment variables of the test program, and of the programs that it starts.
#pragma once

#include "support/test.h"
