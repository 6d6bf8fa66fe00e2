#include "PartialFile.h"

#include <Logger.h>
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

namespace Kv {
namespace Accessory {

namespace {

std::system_error systemError(const std::string& what) {
    return std::system_error(errno, std::generic_category(), what);
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// "<folder>/<stem> (<n>)<extension>": the n-th alternative to `path`.
std::string numbered(const std::string& path, int n) {
    const std::string name = nameOf(path);
    const std::size_t dot = name.rfind('.');
    const bool hasExtension = dot != std::string::npos && dot != 0;
    const std::string stem = hasExtension ? name.substr(0, dot) : name;
    const std::string extension = hasExtension ? name.substr(dot) : "";
    return folderOf(path) + "/" + stem + " (" + std::to_string(n) + ")" + extension;
}

// Moves `from` to `to` unless `to` exists; false (with errno EEXIST) then.
bool moveIfFree(const std::string& from, const std::string& to) {
    return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0;
}

void writeNote(const std::string& note, const std::string& temporary) {
    std::ofstream file(note, std::ios::trunc);
    file << temporary << "\n";
    if (!file.flush()) {
        throw systemError("cannot note " + temporary + " in " + note);
    }
}

}  // namespace

PartialFile::PartialFile(std::string destination, const std::string& journalDir, int id)
    : m_destination(std::move(destination)),
      m_temporary(folderOf(m_destination) + "/." + nameOf(m_destination) + ".part-" +
                  std::to_string(id)),
      m_note(journalDir + "/" + std::to_string(id)) {
    ::mkdir(journalDir.c_str(), 0700);
    writeNote(m_note, m_temporary);
    m_fd = ::open(m_temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (m_fd < 0) {
        const std::system_error error = systemError("cannot write " + m_destination);
        ::unlink(m_note.c_str());
        throw error;
    }
}

PartialFile::~PartialFile() {
    if (!m_committed) {
        discard();
    }
}

bool PartialFile::write(const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t count = ::write(m_fd, data, size);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        data += count;
        size -= static_cast<std::size_t>(count);
        m_written += static_cast<std::uint64_t>(count);
    }
    return true;
}

std::string PartialFile::commit(bool keepExisting) {
    if (::fdatasync(m_fd) != 0 || ::close(m_fd) != 0) {
        m_fd = -1;
        throw systemError("cannot finish " + m_destination);
    }
    m_fd = -1;
    std::string target = m_destination;
    if (!keepExisting) {
        if (::rename(m_temporary.c_str(), target.c_str()) != 0) {
            throw systemError("cannot move " + m_temporary + " to " + target);
        }
    } else {
        for (int n = 1; !moveIfFree(m_temporary, target); ++n) {
            if (errno != EEXIST) {
                throw systemError("cannot move " + m_temporary + " to " + target);
            }
            target = numbered(m_destination, n);
        }
    }
    m_committed = true;
    ::unlink(m_note.c_str());
    return target;
}

void PartialFile::discard() {
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
    ::unlink(m_temporary.c_str());
    ::unlink(m_note.c_str());
}

void PartialFile::removeLeftovers(const std::string& journalDir) {
    DIR* folder = ::opendir(journalDir.c_str());
    if (folder == nullptr) {
        return;
    }
    while (const dirent* entry = ::readdir(folder)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        std::string note = journalDir + '/';
        note += name;
        std::ifstream file(note);
        std::string temporary;
        if (std::getline(file, temporary) && !temporary.empty() &&
            ::unlink(temporary.c_str()) == 0) {
            LoggerI("removed " << temporary << ", left by an interrupted transfer");
        }
        ::unlink(note.c_str());
    }
    ::closedir(folder);
}

}  // namespace Accessory
}  // namespace Kv
