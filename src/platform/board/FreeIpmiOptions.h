#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

// The words a board file uses for libfreeipmi's session options, and the
// values libfreeipmi takes for them. The board checks its words here, and the
// transport turns them into values here, so the two cannot disagree.
namespace partmode::freeipmi {

// "user", "operator" or "admin".
std::optional<std::uint8_t> privilegeLevel(std::string_view name);

// One of libfreeipmi's IPMI 2.0 out-of-band workaround names ("authcap",
// "intel20", "supermicro20", "sun20", "opensesspriv", "integritycheckvalue",
// "nochecksumcheck").
std::optional<unsigned int> outOfBandWorkaround(std::string_view name);

// How the in-band transport reaches the BMC: a libfreeipmi driver
// ("openipmi", "kcs", "ssif", "sunbmc", "inteldcmi"), or "auto" to let
// libfreeipmi probe for one. An empty value stands for "auto".
std::optional<int> inbandDriver(std::string_view name);

bool cipherSuiteSupported(unsigned int cipherSuite);

} // namespace partmode::freeipmi
