// A file being received. It is written under a temporary name beside its
// destination ("<folder>/.<name>.part-<id>") and takes its final name only
// once it is complete, so that nothing under a destination name is ever
// partial. While it is open, its temporary path is noted in a journal folder;
// a crash of the daemon leaves both behind, and removeLeftovers() clears them
// at the next start.
#ifndef KV_ACCESSORYD_PARTIAL_FILE_H
#define KV_ACCESSORYD_PARTIAL_FILE_H

#include <cstdint>
#include <string>

namespace Kv {
namespace Accessory {

class PartialFile {
public:
    // Creates the temporary file for `destination` and notes it in
    // `journalDir` under `id`. Throws std::system_error when either can't be
    // made (the destination's folder is missing or not writable, say).
    PartialFile(std::string destination, const std::string& journalDir, int id);
    // Removes the temporary file and its note unless commit() succeeded.
    ~PartialFile();
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    // Appends `size` bytes; false when the file system refused (errno tells).
    bool write(const char* data, std::size_t size);
    std::uint64_t written() const { return m_written; }

    // Moves the complete file to its destination and returns the path it got.
    // An existing file of that name is replaced, unless `keepExisting`: then
    // the new file takes the first free name "name (1).ext", "name (2).ext"...
    // Throws std::system_error when the file can't be finished or moved.
    std::string commit(bool keepExisting);

    // Removes the temporary files and notes that a crash left in `journalDir`.
    static void removeLeftovers(const std::string& journalDir);

private:
    void discard();

    std::string m_destination;
    std::string m_temporary;
    std::string m_note;
    int m_fd = -1;
    std::uint64_t m_written = 0;
    bool m_committed = false;
};

}  // namespace Accessory
}  // namespace Kv

#endif
