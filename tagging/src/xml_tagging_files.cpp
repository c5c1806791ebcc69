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
    bytes.clear();
    if (!error && st.st_size > 0) bytes.reserve(static_cast<std::size_t>(st.st_size));
    char chunk[1 << 16];
    while (!error) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n > 0) bytes.append(chunk, static_cast<std::size_t>(n));
        else if (n == 0) break;
        else if (errno != EINTR) error = errno;
    }
    ::close(fd);
    return error;
}

int writeWhole(const String& path, const String& bytes) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return errno;
    int error = 0;
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n >= 0) done += static_cast<std::size_t>(n);
        else if (errno != EINTR) {
            error = errno;
            break;
        }
    }
    if (::close(fd) != 0 && !error) error = errno;
    return error;
}

struct StringWriter : pugi::xml_writer {
    String text;
    void write(const void* data, std::size_t size) override {
        text.append(static_cast<const char*>(data), size);
    }
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
    static const FileOps ops{readWhole, writeWhole};
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
    StringWriter out;
    unsigned flags = pugi::format_indent;
    if (byteOrderMark) flags |= pugi::format_write_bom;
    document.save(out, "  ", flags, encoding);
    return XmlTagging::fileOps().write(path, out.text) == 0;
}

}  // namespace xmlfile
}  // namespace MOSAQ::Portals
