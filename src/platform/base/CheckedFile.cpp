#include "CheckedFile.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace partmode {
namespace {

using Kind = CheckedFile::Refused::Kind;

std::string octal(mode_t mode)
{
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned int>(mode & 07777));
    return text.data();
}

bool ownedByUs(const struct stat& status) { return status.st_uid == 0 || status.st_uid == ::geteuid(); }

void checkStatus(const std::filesystem::path& path, int fd, const CheckedFile::Rules& rules)
{
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        throw CheckedFile::Refused(Kind::Unreadable, std::strerror(errno), errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw CheckedFile::Refused(Kind::NotRegular, "is not a regular file", S_ISDIR(status.st_mode) ? EISDIR : 0);
    }
    if (rules.sizeLimit != 0 && static_cast<std::size_t>(status.st_size) > rules.sizeLimit) {
        throw CheckedFile::Refused(Kind::TooLarge, "is larger than " + std::to_string(rules.sizeLimit) + " bytes");
    }
    const bool strict = rules.privateToOwner || CheckedFile::privileged();
    if (!strict) {
        return;
    }
    if (!ownedByUs(status)) {
        throw CheckedFile::Refused(Kind::Owner, "belongs to uid " + std::to_string(status.st_uid) +
                                                    ", neither root nor uid " + std::to_string(::geteuid()));
    }
    const mode_t forbidden = rules.privateToOwner ? (S_IRWXG | S_IRWXO) : (S_IWGRP | S_IWOTH);
    if ((status.st_mode & forbidden) != 0) {
        throw CheckedFile::Refused(Kind::Writable,
                                   rules.privateToOwner
                                       ? "may be used by group or others (mode " + octal(status.st_mode) + ")"
                                       : "may be written by group or others (mode " + octal(status.st_mode) + ")");
    }
    if (rules.privateToOwner) {
        const auto folder = path.parent_path().empty() ? std::filesystem::path(".") : path.parent_path();
        struct stat folderStatus {};
        if (::stat(folder.c_str(), &folderStatus) != 0) {
            throw CheckedFile::Refused(Kind::Unreadable, std::strerror(errno), errno);
        }
        if ((folderStatus.st_mode & S_IWOTH) != 0) {
            throw CheckedFile::Refused(Kind::FolderWritable, "lies in a folder that others may write to (" +
                                                                 folder.string() + ", mode " +
                                                                 octal(folderStatus.st_mode) + ")");
        }
    }
}

} // namespace

UniqueFd CheckedFile::open(const std::filesystem::path& path, int flags, const Rules& rules, mode_t createMode)
{
    int allFlags = flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    if (createMode != 0) {
        allFlags |= O_CREAT;
    }
    UniqueFd fd(::open(path.c_str(), allFlags, createMode));
    if (!fd) {
        const int error = errno;
        if (error == ENOENT) {
            throw Refused(Kind::Missing, std::strerror(error), error);
        }
        if (error == ELOOP) {
            throw Refused(Kind::NotRegular, "is a symbolic link");
        }
        if (error == EISDIR || error == ENXIO) {
            throw Refused(Kind::NotRegular, "is not a regular file", error == EISDIR ? EISDIR : 0);
        }
        throw Refused(Kind::Unreadable, std::strerror(error), error);
    }
    checkStatus(path, fd.get(), rules);
    // Back to blocking, so that a full disk or a lock behaves as usual.
    if (const int current = ::fcntl(fd.get(), F_GETFL); current >= 0) {
        ::fcntl(fd.get(), F_SETFL, current & ~O_NONBLOCK);
    }
    return fd;
}

std::string CheckedFile::read(const std::filesystem::path& path, const Rules& rules)
{
    const UniqueFd fd = open(path, O_RDONLY, rules);
    return read(fd.get(), rules);
}

std::string CheckedFile::read(int fd, const Rules& rules)
{
    std::string content;
    std::vector<char> buffer(64 * 1024);
    for (;;) {
        const ssize_t got = ::read(fd, buffer.data(), buffer.size());
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw Refused(Kind::Unreadable, std::strerror(errno), errno);
        }
        if (got == 0) {
            return content;
        }
        content.append(buffer.data(), static_cast<std::size_t>(got));
        // The file may grow after fstat looked at it.
        if (rules.sizeLimit != 0 && content.size() > rules.sizeLimit) {
            throw Refused(Kind::TooLarge, "is larger than " + std::to_string(rules.sizeLimit) + " bytes");
        }
    }
}

bool CheckedFile::privileged() { return ::getauxval(AT_SECURE) != 0; }

} // namespace partmode
