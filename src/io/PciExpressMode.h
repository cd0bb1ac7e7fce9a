#pragma once

#include <cstring>

// The PCI Express mode words and their wire values.
struct PciExpressMode {
    static constexpr const char* kKeyword = "pci_express_mode";
    static constexpr int kFixed = 0;
    static constexpr int kFlexible = 1;

    // The word of a mode value, or null for a value that is no mode.
    static const char* word(int mode)
    {
        if (mode == kFixed) {
            return "fixed";
        }
        if (mode == kFlexible) {
            return "flexible";
        }
        return nullptr;
    }
};
