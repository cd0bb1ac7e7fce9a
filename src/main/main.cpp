#include "Board.h"
#include "CheckedFile.h"
#include "MessageCatalogue.h"
#include "OrbTrace.h"
#include "PException.h"
#include "PartModeCmd.h"

#include <sys/stat.h>

#include <clocale>
#include <cstdio>
#include <iostream>

int main(int argc, char** argv)
{
    // The catalogue texts follow the operator's locale (LANG, LC_ALL,
    // LC_MESSAGES); numbers and characters stay as in the C locale.
    std::setlocale(LC_MESSAGES, "");
    // A privileged run has no built-in board: without the installation's
    // board it stops here, after the one line that says why.
    if (partmode::CheckedFile::privileged()) {
        // The caller's umask must not make the folders and files created for
        // the trail writable by others.
        ::umask(S_IWGRP | S_IWOTH);
        try {
            static_cast<void>(partmode::Board::instance());
        } catch (const PException&) {
            return 2;
        }
    }
    try {
        PartModeCmd partModeCmd;
        return partModeCmd.execute(argc, argv);
    } catch (...) {
        // Last resort: whatever escaped a command ends here with exit 2. The
        // line is formatted on the stack, as the exception may be a failed
        // allocation.
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
