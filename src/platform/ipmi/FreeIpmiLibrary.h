#pragma once

#include <freeipmi/freeipmi.h>

#include <string>

namespace partmode::freeipmi {

// The functions of libfreeipmi that the LAN and in-band transports call. The
// library is loaded when a session with a BMC is first opened, so that a run
// on the embedded simulator never maps it, nor libgcrypt behind it, and
// spends nothing on their relocations.
struct Library {
    decltype(&ipmi_ctx_create) ctxCreate;
    decltype(&ipmi_ctx_destroy) ctxDestroy;
    decltype(&ipmi_ctx_close) ctxClose;
    decltype(&ipmi_ctx_errnum) ctxErrnum;
    decltype(&ipmi_ctx_errormsg) ctxErrormsg;
    decltype(&ipmi_ctx_open_outofband_2_0) ctxOpenOutofband20;
    decltype(&ipmi_ctx_find_inband) ctxFindInband;
    decltype(&ipmi_ctx_open_inband) ctxOpenInband;
    decltype(&ipmi_cmd_raw) cmdRaw;

    // The loaded library, or null with the reason in `reason`. It stays
    // loaded for the rest of the process.
    static const Library* load(std::string& reason);
};

} // namespace partmode::freeipmi
