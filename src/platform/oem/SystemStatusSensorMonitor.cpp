#include "SystemStatusSensorMonitor.h"

#include "OemProtocol.h"

namespace OrbLib::OrbUi {

const partmode::wire::OemRequest& SystemStatusSensorMonitor::request() const
{
    return partmode::wire::kGetSystemStatus;
}

unsigned int SystemStatusSensorMonitor::getSerialized(unsigned char*, unsigned int) const { return 0; }

bool SystemStatusSensorMonitor::setSerialized(const unsigned char*, unsigned int size) { return size == 0; }

} // namespace OrbLib::OrbUi
