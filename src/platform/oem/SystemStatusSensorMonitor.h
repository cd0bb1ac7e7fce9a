#pragma once

#include "Authority.h"
#include "UICommand.h"

namespace OrbLib::OrbUi {

// The server monitor's system status sensor list request. It has no body.
class SystemStatusSensorMonitor : public UICommand, public Authority {
public:
    explicit SystemStatusSensorMonitor(int authority) : Authority(authority) {}

    [[nodiscard]] const partmode::wire::OemRequest& request() const override;
    unsigned int getSerialized(unsigned char* buffer, unsigned int size) const override;
    [[nodiscard]] unsigned int getSerializedSize() const override { return 0; }
    bool setSerialized(const unsigned char* data, unsigned int size) override;
};

} // namespace OrbLib::OrbUi
