#include "PartModeCmd.h"

#include "CommonUtil.h"
#include "ConsoleLine.h"
#include "PartModeConfigCmd.h"
#include "PartModeUtil.h"
#include "SetPartitionDynamicPartitioning.h"
#include "SetPartitionLanDeviceMode.h"
#include "SetPartitionMemoryOperationMode.h"
#include "SetPartitionMirrorRasMode.h"
#include "SetPartitionPCIAddressMode.h"
#include "SetPartitionPCIExpressMode.h"
#include "SetPartitionSparingMode.h"
#include "ShowPartitionDynamicPartitioning.h"
#include "ShowPartitionLanDeviceMode.h"
#include "ShowPartitionMemoryOperationMode.h"
#include "ShowPartitionMirrorRasMode.h"
#include "ShowPartitionPCIAddressMode.h"
#include "ShowPartitionPCIExpressMode.h"
#include "ShowPartitionSparingMode.h"

#include <array>
#include <memory>
#include <sstream>

namespace {

using Factory = std::unique_ptr<PartModeConfigCmd> (*)();

template <typename Command>
std::unique_ptr<PartModeConfigCmd> create()
{
    return std::make_unique<Command>();
}

// One row per feature keyword, in the order they are tested; "set" creates
// the first command, "show" the second.
struct Feature {
    const char* keyword;
    Factory set;
    Factory show;
};

constexpr std::array<Feature, 7> kFeatures{{
    {"pci_express_mode", &create<SetPartitionPCIExpressMode>, &create<ShowPartitionPCIExpressMode>},
    {"lan_device_mode", &create<SetPartitionLanDeviceMode>, &create<ShowPartitionLanDeviceMode>},
    {"pci_address_mode", &create<SetPartitionPCIAddressMode>, &create<ShowPartitionPCIAddressMode>},
    {"memory_mirror_ras_mode", &create<SetPartitionMirrorRasMode>, &create<ShowPartitionMirrorRasMode>},
    {"memory_operation_mode", &create<SetPartitionMemoryOperationMode>, &create<ShowPartitionMemoryOperationMode>},
    {"dynamic_reconfiguration", &create<SetPartitionDynamicPartitioning>, &create<ShowPartitionDynamicPartitioning>},
    {"memory_sparing_mode", &create<SetPartitionSparingMode>, &create<ShowPartitionSparingMode>},
}};

constexpr std::size_t kFailureBufferSize = 256;

} // namespace

bool PartModeCmd::parseCommand(int* argc, char*** argv)
{
    --*argc;
    ++*argv;
    if (*argc <= 0) {
        return false;
    }
    int base = 0;
    if (PartModeUtil::checkKeyword(**argv, "set")) {
        base = 0;
    } else if (PartModeUtil::checkKeyword(**argv, "show")) {
        base = 1;
    } else {
        return false;
    }
    --*argc;
    ++*argv;
    if (CommonUtil::getMaxPartitionNum() != 1 && *argc > 0 && PartModeUtil::checkKeyword(**argv, "partition")) {
        --*argc;
        ++*argv;
    }
    const char* keyword = *argc > 0 ? **argv : nullptr;
    for (std::size_t index = 0; index < kFeatures.size(); ++index) {
        if (PartModeUtil::checkKeyword(keyword, kFeatures[index].keyword)) {
            commandType_ = static_cast<int>(index * 2) + base;
            --*argc;
            ++*argv;
            return true;
        }
    }
    return false;
}

int PartModeCmd::execute(int argc, char** argv)
{
    std::ostringstream joined;
    for (int i = 1; i < argc; ++i) {
        if (i > 1) {
            joined << ' ';
        }
        if (argv[i] == nullptr) {
            joined.setstate(std::ios::badbit);
        } else {
            joined << argv[i];
        }
    }
    const std::string failure = ConsoleLine::failure(kFailureBufferSize, joined.str());

    if (!parseCommand(&argc, &argv)) {
        ConsoleLine::printError(failure);
        return 1;
    }
    const Feature& feature = kFeatures[static_cast<std::size_t>(commandType_ / 2)];
    const Factory factory = commandType_ % 2 == 0 ? feature.set : feature.show;
    if (factory == nullptr) {
        ConsoleLine::printError(failure);
        return 1;
    }
    // The command is destroyed on return and when an exception passes.
    const std::unique_ptr<PartModeConfigCmd> command = factory();
    return command->processCommand(argc, argv);
}
