// Whole-file reads and writes of XML documents (see xml_tagging_files.h) and
// the default file operations of XmlTagging.
#include "xml_tagging_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace MOSAQ::Portals {

namespace {

int readWhole(const String& path, String& bytes) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno;
    struct stat st {};
    int error = 0;
    if (::fstat(fd, &st) != 0) error = errno;
    else if (S_ISDIR(st.st_mode)) error = EISDIR;
    // Read straight into place; a file that grows meanwhile is read on to its end.
    bytes.assign(error ? 0 : static_cast<std::size_t>(st.st_size) + 1, '\0');
    std::size_t done = 0;
    while (!error) {
        if (done == bytes.size()) bytes.resize(bytes.size() * 2 + 4096);
        const ssize_t n = ::read(fd, bytes.data() + done, bytes.size() - done);
        if (n > 0) done += static_cast<std::size_t>(n);
        else if (n == 0) break;
        else if (errno != EINTR) error = errno;
    }
    bytes.resize(done);
    ::close(fd);
    return error;
}

int createFile(const String& path) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    return fd < 0 ? -errno : fd;
}

long writeSome(int fd, const void* data, unsigned long size) { return ::write(fd, data, size); }

// Streams the saved text to a descriptor in large pieces; the first failure
// is kept and everything after it dropped.
class FileWriter : public pugi::xml_writer {
public:
    explicit FileWriter(int fd) : fd_(fd) { buffer_.reserve(kPiece); }
    void write(const void* data, std::size_t size) override {
        if (buffer_.size() + size > kPiece) flush();
        if (size >= kPiece) put(static_cast<const char*>(data), size);
        else buffer_.append(static_cast<const char*>(data), size);
    }
    // Writes what is left; 0 or the first errno value.
    int finish() {
        flush();
        return error_;
    }

private:
    static constexpr std::size_t kPiece = 1 << 20;
    void flush() {
        put(buffer_.data(), buffer_.size());
        buffer_.clear();
    }
    void put(const char* data, std::size_t size) {
        while (size > 0 && !error_) {
            const long n = XmlTagging::fileOps().write(fd_, data, size);
            if (n > 0) {
                data += n;
                size -= static_cast<std::size_t>(n);
            } else if (n < 0 && errno != EINTR) {
                error_ = errno;
            } else if (n == 0) {
                error_ = EIO;
            }
        }
    }
    int fd_;
    int error_ = 0;
    String buffer_;
};

bool startsWithByteOrderMark(const String& b) {
    auto at = [&](std::size_t i) { return static_cast<unsigned char>(b[i]); };
    if (b.size() >= 3 && at(0) == 0xEF && at(1) == 0xBB && at(2) == 0xBF) return true;
    if (b.size() >= 2 && ((at(0) == 0xFE && at(1) == 0xFF) || (at(0) == 0xFF && at(1) == 0xFE)))
        return true;
    return b.size() >= 4 && at(0) == 0 && at(1) == 0 && at(2) == 0xFE && at(3) == 0xFF;
}

}  // namespace

XmlTagging::FileOps& XmlTagging::fileOps() {
    static FileOps ops = defaultFileOps();
    return ops;
}

const XmlTagging::FileOps& XmlTagging::defaultFileOps() {
    static const FileOps ops{readWhole, createFile, writeSome, ::close};
    return ops;
}

namespace xmlfile {

void load(XmlFile& file, const String& path, unsigned flags) {
    const int error = XmlTagging::fileOps().read(path, file.bytes);
    if (error) {
        file.result = pugi::xml_parse_result();
        file.result.status = error == ENOENT || error == ENOTDIR ? pugi::status_file_not_found
                                                                 : pugi::status_io_error;
        return;
    }
    file.byteOrderMark = startsWithByteOrderMark(file.bytes);
    file.result = file.document.load_buffer_inplace(file.bytes.data(), file.bytes.size(), flags,
                                                    pugi::encoding_auto);
}

bool save(const pugi::xml_document& document, const String& path, pugi::xml_encoding encoding,
          bool byteOrderMark) {
    const int fd = XmlTagging::fileOps().create(path);
    if (fd < 0) return false;
    FileWriter out(fd);
    unsigned flags = pugi::format_indent;
    if (byteOrderMark) flags |= pugi::format_write_bom;
    document.save(out, "  ", flags, encoding);
    const int error = out.finish();
    return XmlTagging::fileOps().close(fd) == 0 && error == 0;
}

}  // namespace xmlfile
}  // namespace MOSAQ::Portals
