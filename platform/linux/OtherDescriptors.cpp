#include "platform/StandardDescriptors.h"

#include <unistd.h>

namespace veltrin::platform {

void closeAllButStandardDescriptors() {
    closefrom(STDERR_FILENO + 1);
}

} // namespace veltrin::platform
