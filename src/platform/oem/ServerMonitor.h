#pragma once

#include "SerializableObject.h"

namespace OrbLib::OrbUi {

// The board's server monitor: sends a request over its own firmware session
// and fills the response object from the serialised answer.
class ServerMonitor {
public:
    // `request` must be a UICommand. Throws PException when the session fails,
    // the firmware refuses or the answer does not deserialise.
    static void execute(SerializableObject* request, SerializableObject* response);
};

} // namespace OrbLib::OrbUi
