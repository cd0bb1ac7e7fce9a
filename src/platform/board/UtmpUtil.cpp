#include "UtmpUtil.h"

#include <pwd.h>
#include <unistd.h>
#include <utmpx.h>

#include <array>
#include <cstring>
#include <vector>

namespace {

std::string terminalName()
{
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        std::array<char, 256> name{};
        if (::ttyname_r(fd, name.data(), name.size()) == 0) {
            std::string path(name.data());
            if (path.rfind("/dev/", 0) == 0) {
                path.erase(0, 5);
            }
            return path;
        }
    }
    return {};
}

std::string remoteHost(const std::string& terminal)
{
    std::string host;
    setutxent();
    while (const utmpx* entry = getutxent()) {
        if (entry->ut_type == USER_PROCESS &&
            std::strncmp(entry->ut_line, terminal.c_str(), sizeof(entry->ut_line)) == 0) {
            host.assign(entry->ut_host, strnlen(entry->ut_host, sizeof(entry->ut_host)));
        }
    }
    endutxent();
    return host;
}

} // namespace

int UtmpUtil::getUserInfo(std::string& userName, std::string& origin)
{
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        return 1;
    }
    userName = found->pw_name;
    const std::string terminal = terminalName();
    if (terminal.empty()) {
        origin = "-";
        return 0;
    }
    const std::string host = remoteHost(terminal);
    origin = host.empty() ? terminal : host;
    return 0;
}
