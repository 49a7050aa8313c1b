#include "zobi/platform/simulation/CentralEnd.h"

namespace zobi::platform::simulation {

CentralEnd::~CentralEnd() = default;

}  // namespace zobi::platform::simulation
