#pragma once

#ifdef VELTRIN_ON_FOUNDATION
#include "tests/support/PrivateGdnc.h"
#else
#include "tests/support/PrivateBus.h"
#endif

namespace veltrin::test {

/// The notification service of the platform that the programs are built for, one of the test's own.
#ifdef VELTRIN_ON_FOUNDATION
using PrivateService = PrivateGdnc;
#else
using PrivateService = PrivateBus;
#endif

} // namespace veltrin::test
