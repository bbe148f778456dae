#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace veltrin {

/// A temporary file of CUPS for one spooled page, open for writing while the object lives, and gone with it
/// unless somebody keeps it.
class SpoolFile {
  public:
    SpoolFile();
    SpoolFile(const SpoolFile &) = delete;
    SpoolFile &operator=(const SpoolFile &) = delete;

    /// Closes the file, and removes it where it has not been kept.
    ~SpoolFile();

    [[nodiscard]] bool isOpen() const { return fd != -1; }

    [[nodiscard]] int descriptor() const { return fd; }

    [[nodiscard]] const std::string &path() const { return name; }

    /// From now on it is somebody else's to remove.
    void keep() { isKept = true; }

  private:
    std::string name;
    int fd = -1;
    bool isKept = false;
};

/// The pages of a two-sided job, each in a file of its own, and the order in which they are to be sent.
class SpooledPages {
  public:
    SpooledPages() = default;
    SpooledPages(const SpooledPages &) = delete;
    SpooledPages &operator=(const SpooledPages &) = delete;

    /// Removes the files.
    ~SpooledPages() { cleanupSpoolFiles(); }

    /// Takes a spooled page's file, to be removed with the others.
    void add(const std::string &path) { origPaths.push_back(path); }

    /// Pages spooled.
    [[nodiscard]] std::uint32_t pageCount() const { return static_cast<std::uint32_t>(origPaths.size()); }

    /// The file of a spooled page, by its place in the input.
    [[nodiscard]] const std::string &origPath(std::uint32_t index) const { return origPaths[index]; }

    /// Makes these spooled pages one copy, in this order.
    void select(const std::vector<std::uint32_t> &indexes);

    /// Puts the last spooled page, which the renderer has left blank, at the end of the copy.
    void appendBlankPage() { paths.push_back(origPaths.back()); }

    /// Puts the pages of the copy into another order, by their present places.
    void reorder(const std::vector<std::uint32_t> &indexes);

    /// Pages of one copy.
    [[nodiscard]] std::uint32_t pathCount() const { return static_cast<std::uint32_t>(paths.size()); }

    /// The file of a page of the copy, by its place in the order to be sent.
    [[nodiscard]] const std::string &path(std::uint32_t index) const { return paths[index]; }

    /// Removes the files; there are no pages then.
    void cleanupSpoolFiles();

  private:
    /// Spool files in the order written.
    std::vector<std::string> origPaths;

    /// The pages of one copy in the order to be sent, out of `origPaths`.
    std::vector<std::string> paths;
};

} // namespace veltrin
