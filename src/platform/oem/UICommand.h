#pragma once

#include "OemRequest.h"
#include "SerializableObject.h"

namespace OrbLib::OrbUi {

// A request to the board's server monitor; it names the firmware request that
// carries it.
class UICommand : public SerializableObject {
public:
    [[nodiscard]] virtual const partmode::wire::OemRequest& request() const = 0;
};

} // namespace OrbLib::OrbUi
