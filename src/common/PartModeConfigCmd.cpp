#include "PartModeConfigCmd.h"

int PartModeConfigCmd::processCommand(int argc, char** argv)
{
    const int result = parseCommand(argc, argv) ? execute() : 1;
    if (result != 0) {
        explainFailure();
    }
    return result;
}
