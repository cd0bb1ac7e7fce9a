#pragma once

// The PCI address mode words and their wire values.
struct PciAddressMode {
    static constexpr const char* kKeyword = "pci_address_mode";
    static constexpr int kBus = 0;
    static constexpr int kSegment = 1;

    // The word of a mode value, or null for a value that is no mode.
    static const char* word(int mode)
    {
        if (mode == kBus) {
            return "bus";
        }
        if (mode == kSegment) {
            return "segment";
        }
        return nullptr;
    }
};
