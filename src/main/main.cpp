#include "MessageCatalogue.h"
#include "OrbTrace.h"
#include "PartModeCmd.h"

#include <clocale>
#include <cstdio>
#include <iostream>

int main(int argc, char** argv)
{
    // The catalogue texts follow the operator's locale (LANG, LC_ALL,
    // LC_MESSAGES); numbers and characters stay as in the C locale.
    std::setlocale(LC_MESSAGES, "");
    try {
        PartModeCmd partModeCmd;
        return partModeCmd.execute(argc, argv);
    } catch (...) {
        // Last resort: whatever escaped a command ends here with exit 2.
        char failure[kMessageBufferSize];
        if (argc > 1) {
            std::snprintf(failure, sizeof(failure), "Failed to execute %s command.", argv[1]);
        } else {
            std::snprintf(failure, sizeof(failure), "Failed to execute command.");
        }
        std::cerr << failure << std::endl;
        const trace::OrbTrace trace(1, 3, 1024);
        char message[kMessageBufferSize];
        trace.putLog(0, lmsg_getmsg(10047, message, failure, 0, 0));
        return 2;
    }
}
