#include "GuestAgentClient.h"

#include "Base64.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace partmode::test {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::runtime_error systemError(const std::string& what)
{
    return std::runtime_error(what + ": " + std::strerror(errno));
}

std::string content(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

json entry(const fs::path& path, const struct stat& info, const std::vector<fs::path>& guestHas)
{
    json item{{"path", path.string()},
              {"type", S_ISDIR(info.st_mode) ? "dir" : "file"},
              {"mode", info.st_mode & 07777},
              {"uid", info.st_uid},
              {"gid", info.st_gid}};
    if (S_ISDIR(info.st_mode))
        return item;
    const auto bytes = content(path);
    for (const auto& known : guestHas) {
        std::error_code error;
        if (fs::file_size(known, error) == bytes.size() && !error && content(known) == bytes) {
            item["copy"] = known.string();
            return item;
        }
    }
    item["data"] = base64Encode(bytes);
    return item;
}

} // namespace

GuestAgentClient::GuestAgentClient(const fs::path& link)
{
    // The socket itself lies in a folder with a short path (inband-vm.sh).
    std::error_code error;
    const fs::path socket = fs::is_symlink(link, error) ? fs::canonical(link, error) : link;
    if (error)
        throw std::runtime_error("cannot follow " + link.string() + ": " + error.message());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket.string().size() >= sizeof(address.sun_path))
        throw std::runtime_error("the agent's socket path is too long: " + socket.string());
    std::strcpy(address.sun_path, socket.c_str());
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0 || ::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        const auto error = systemError("cannot reach the guest agent at " + socket.string());
        if (fd_ >= 0)
            ::close(fd_);
        throw error;
    }
}

GuestAgentClient::~GuestAgentClient() { ::close(fd_); }

json GuestAgentClient::call(json request, std::chrono::milliseconds timeout)
{
    // Answers to requests of an earlier client that gave up may still come;
    // the id tells this request's answer.
    const auto id = std::to_string(::getpid()) + "-" + std::to_string(++next_);
    request["id"] = id;
    std::string_view line;
    const auto text = request.dump() + "\n";
    line = text;
    while (!line.empty()) {
        const auto put = ::send(fd_, line.data(), line.size(), MSG_NOSIGNAL);
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            throw systemError("cannot send to the guest agent");
        line.remove_prefix(static_cast<std::size_t>(put));
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        for (auto end = pending_.find('\n'); end != std::string::npos; end = pending_.find('\n')) {
            const json answer = json::parse(pending_.substr(0, end), nullptr, false);
            pending_.erase(0, end + 1);
            if (!answer.is_object() || answer.value("id", json()) != id)
                continue;
            if (answer.contains("error"))
                throw std::runtime_error("the guest agent failed: " + answer.at("error").get<std::string>());
            return answer;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            throw std::runtime_error("the guest agent did not answer within " + std::to_string(timeout.count() / 1000) +
                                     " s");
        pollfd wait{fd_, POLLIN, 0};
        if (::poll(&wait, 1, static_cast<int>(left.count())) < 0) {
            if (errno == EINTR)
                continue;
            throw systemError("poll");
        }
        if (wait.revents == 0)
            continue;
        std::array<char, 65536> buffer{};
        const auto got = ::recv(fd_, buffer.data(), buffer.size(), 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            throw std::runtime_error("the guest agent's serial port closed");
        pending_.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

json GuestAgentClient::folderEntries(const fs::path& folder, const std::vector<fs::path>& guestHas)
{
    json entries = json::array();
    struct stat info {};
    if (::lstat(folder.c_str(), &info) != 0)
        throw systemError("cannot look at " + folder.string());
    entries.push_back(entry(folder, info, guestHas));
    for (const auto& item : fs::recursive_directory_iterator(folder)) {
        if (::lstat(item.path().c_str(), &info) != 0)
            throw systemError("cannot look at " + item.path().string());
        if (S_ISDIR(info.st_mode) || S_ISREG(info.st_mode))
            entries.push_back(entry(item.path(), info, guestHas));
    }
    return entries;
}

} // namespace partmode::test
