#pragma once

#include "tests/support/ExpectedOutput.h"
