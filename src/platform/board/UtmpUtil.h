#pragma once

#include <string>

// The user logged in on this process's terminal.
class UtmpUtil {
public:
    // `userName`: the login name of the real user id. `origin`: the remote
    // host of the terminal's login record, else the terminal's name, else "-".
    // Returns non-zero when the real user id has no passwd entry.
    static int getUserInfo(std::string& userName, std::string& origin);
};
