#include "FreeIpmiOptions.h"

#include <freeipmi/freeipmi.h>

#include <array>
#include <utility>

namespace partmode::freeipmi {
namespace {

template <typename Value, std::size_t N>
std::optional<Value> lookUp(const std::array<std::pair<std::string_view, Value>, N>& table, std::string_view name)
{
    for (const auto& [word, value] : table) {
        if (word == name) {
            return value;
        }
    }
    return std::nullopt;
}

constexpr std::array<std::pair<std::string_view, std::uint8_t>, 3> kPrivileges{{
    {"user", IPMI_PRIVILEGE_LEVEL_USER},
    {"operator", IPMI_PRIVILEGE_LEVEL_OPERATOR},
    {"admin", IPMI_PRIVILEGE_LEVEL_ADMIN},
}};

constexpr std::array<std::pair<std::string_view, unsigned int>, 7> kWorkarounds{{
    {"authcap", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_AUTHENTICATION_CAPABILITIES},
    {"intel20", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_INTEL_2_0_SESSION},
    {"supermicro20", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_SUPERMICRO_2_0_SESSION},
    {"sun20", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_SUN_2_0_SESSION},
    {"opensesspriv", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_OPEN_SESSION_PRIVILEGE},
    {"integritycheckvalue", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_NON_EMPTY_INTEGRITY_CHECK_VALUE},
    {"nochecksumcheck", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_NO_CHECKSUM_CHECK},
}};

constexpr std::array<std::pair<std::string_view, int>, 6> kDrivers{{
    {"auto", IPMI_DEVICE_UNKNOWN},
    {"openipmi", IPMI_DEVICE_OPENIPMI},
    {"kcs", IPMI_DEVICE_KCS},
    {"ssif", IPMI_DEVICE_SSIF},
    {"sunbmc", IPMI_DEVICE_SUNBMC},
    {"inteldcmi", IPMI_DEVICE_INTELDCMI},
}};

} // namespace

std::optional<std::uint8_t> privilegeLevel(std::string_view name) { return lookUp(kPrivileges, name); }

std::optional<unsigned int> outOfBandWorkaround(std::string_view name) { return lookUp(kWorkarounds, name); }

std::optional<int> inbandDriver(std::string_view name) { return lookUp(kDrivers, name.empty() ? "auto" : name); }

bool cipherSuiteSupported(unsigned int cipherSuite)
{
    return cipherSuite <= 0xFF && IPMI_CIPHER_SUITE_ID_SUPPORTED(cipherSuite) != 0;
}

} // namespace partmode::freeipmi
