// Line readers and the writer of the support layer. Every reader drops one
// '\r' before '\n', so files written on either platform read alike. The
// end-of-file state of FileReader is the stream's own: callers use it to tell
// whether the last line had a line feed.
#include "mosaq/support.h"

namespace MOSAQ::Support {

namespace {

void dropCarriageReturn(String& line) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
}

}  // namespace

FileReader::FileReader(const String& path, bool)
    : std::ifstream(path, std::ios_base::in | std::ios_base::binary) {}

String FileReader::getLine(char delimiter) {
    String line;
    getLine(line, delimiter);
    return line;
}

bool FileReader::getLine(String& line, char delimiter) {
    line.clear();
    if (!std::getline(*this, line, delimiter)) return false;
    dropCarriageReturn(line);
    return true;
}

FileWriter::FileWriter(const String& path, bool)
    : std::ofstream(path, std::ios_base::out | std::ios_base::trunc | std::ios_base::binary) {}

void FileWriter::open(const String& path, std::ios_base::openmode mode, int) {
    std::ofstream::open(path, mode | std::ios_base::binary);
}

FileBufferedReader::FileBufferedReader(const String& path)
    : std::ifstream(path, std::ios_base::in | std::ios_base::binary) {
    if (!is_open()) return;
    String line;
    while (std::getline(*this, line)) {
        dropCarriageReturn(line);
        lines_.push_back(line);
    }
    // The lines are held; clear the end-of-file state so is_open() and the
    // stream state still describe a usable reader.
    clear();
}

int FileBufferedReader::numLines() const { return static_cast<int>(lines_.size()); }

bool FileBufferedReader::gotoLine(const int& row) {
    if (row < 0 || row >= numLines()) return false;
    current_ = row;
    return true;
}

int FileBufferedReader::currentRowNumber() const { return current_; }

String FileBufferedReader::getCurrentLine() const { return getLine(current_); }

String FileBufferedReader::getLine(const int& row) const {
    if (row < 0 || row >= numLines()) return String();
    return lines_[static_cast<std::size_t>(row)];
}

}  // namespace MOSAQ::Support
