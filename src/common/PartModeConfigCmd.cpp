#include "PartModeConfigCmd.h"

int PartModeConfigCmd::processCommand(int argc, char** argv)
{
    if (!parseCommand(argc, argv)) {
        return 1;
    }
    return execute();
}
