#include "FreeIpmiLibrary.h"

#include <dlfcn.h>

#include <optional>

#ifndef PARTMODE_FREEIPMI_SONAME
#error "PARTMODE_FREEIPMI_SONAME must name libfreeipmi's shared object"
#endif

namespace partmode::freeipmi {
namespace {

template <typename Function>
bool resolve(void* handle, const char* name, Function& function, std::string& reason)
{
    function = reinterpret_cast<Function>(::dlsym(handle, name));
    if (function == nullptr) {
        reason = std::string(PARTMODE_FREEIPMI_SONAME " has no ") + name;
    }
    return function != nullptr;
}

std::optional<Library> open(std::string& reason)
{
    void* handle = ::dlopen(PARTMODE_FREEIPMI_SONAME, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = ::dlerror();
        reason = why != nullptr ? why : "cannot load " PARTMODE_FREEIPMI_SONAME;
        return std::nullopt;
    }
    Library library{};
    const bool complete = resolve(handle, "ipmi_ctx_create", library.ctxCreate, reason) &&
                          resolve(handle, "ipmi_ctx_destroy", library.ctxDestroy, reason) &&
                          resolve(handle, "ipmi_ctx_close", library.ctxClose, reason) &&
                          resolve(handle, "ipmi_ctx_errnum", library.ctxErrnum, reason) &&
                          resolve(handle, "ipmi_ctx_errormsg", library.ctxErrormsg, reason) &&
                          resolve(handle, "ipmi_ctx_open_outofband_2_0", library.ctxOpenOutofband20, reason) &&
                          resolve(handle, "ipmi_ctx_find_inband", library.ctxFindInband, reason) &&
                          resolve(handle, "ipmi_ctx_open_inband", library.ctxOpenInband, reason) &&
                          resolve(handle, "ipmi_cmd_raw", library.cmdRaw, reason);
    if (!complete) {
        return std::nullopt;
    }
    return library;
}

} // namespace

const Library* Library::load(std::string& reason)
{
    static std::string failure;
    static const std::optional<Library> library = open(failure);
    reason = failure;
    return library ? &*library : nullptr;
}

} // namespace partmode::freeipmi
