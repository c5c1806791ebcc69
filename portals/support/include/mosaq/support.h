// The support layer the portal framework and the tagging modules stand on:
// text types, file helpers, line readers and writers, the message table and the
// reader of a solver run's messages. It takes the place of the host's own
// support library, so it offers exactly what the framework calls, no more.
//
// Paths are UTF-8 byte strings handed to the operating system unchanged; both
// '/' and '\' separate components in the text operations, since tag files and
// messages written elsewhere carry either.
#pragma once

#include <cstdint>
#include <fstream>
#include <ios>
#include <map>
#include <string>
#include <vector>

#define MOSAQ_EXPORT __attribute__((visibility("default")))

namespace MOSAQ {

using String = std::string;
using StringList = std::vector<String>;
using StringStringMap = std::map<String, String>;

namespace Support {

// File system calls the layer makes, gathered in one table so tests can make a
// rename or a removal fail on purpose. Each entry has the POSIX contract of the
// call it stands for: 0 on success, -1 with errno set on failure.
struct FileSystemOps {
    int (*rename)(const char* from, const char* to);  // must not replace `to`
    int (*unlink)(const char* path);
};
MOSAQ_EXPORT FileSystemOps& fileSystemOps();           // the table in use
MOSAQ_EXPORT const FileSystemOps& defaultFileSystemOps();

class MOSAQ_EXPORT File {
public:
    static bool exists(const String& path);
    // Deletes a file; false if it couldn't.
    static bool remove(const String& path);
    // Moves a file. Never replaces: false if `to` exists or the move failed.
    static bool rename(const String& from, const String& to);
    // Last component of a path, with or without its extension.
    static String base(const String& path, bool withExtension);
    // Extension of the last component, without its dot; empty if none.
    static String extension(const String& path);
    // Folder holding the file; "." for a bare name.
    static String parentFolder(const String& path);
    // Starts with a separator or a drive ("X:").
    static bool isAbsolutePath(const String& path);
    // Seconds of the last change; 0 if the file can't be examined.
    static std::uint32_t modifiedTime(const String& path);
};

// Reads a file line by line. A file that can't be opened is no exception:
// the caller tests is_open(). One '\r' before each '\n' is dropped.
class MOSAQ_EXPORT FileReader : public std::ifstream {
public:
    FileReader(const String& path, bool unused);
    // The next line without its delimiter; empty at the end of the file.
    String getLine(char delimiter);
    // The next line into `line`; false at the end of the file.
    bool getLine(String& line, char delimiter);
};

// Writes a file anew. Created closed, it may be opened later with either form
// of open(); the protection argument of the three-argument form is ignored.
class MOSAQ_EXPORT FileWriter : public std::ofstream {
public:
    FileWriter() = default;
    FileWriter(const String& path, bool unused);
    using std::ofstream::open;
    void open(const String& path, std::ios_base::openmode mode, int protection);
};

// Holds a whole text file as lines with a current line. Rows count from 0.
// "a\nb\n" and "a\nb" both have two lines.
class MOSAQ_EXPORT FileBufferedReader : public std::ifstream {
public:
    explicit FileBufferedReader(const String& path);
    int numLines() const;
    // Makes `row` current; false (and nothing changes) if there is no such row.
    bool gotoLine(const int& row);
    int currentRowNumber() const;
    String getCurrentLine() const;
    // The text of a row; empty for a row that doesn't exist.
    String getLine(const int& row) const;

private:
    StringList lines_;
    int current_ = 0;
};

// The message texts of the portal and of the tagging modules.
class MOSAQ_EXPORT StringTable {
public:
    // The text stored for an id in a table; the id itself if there is none,
    // so a missing text stays visible and is never read as an error.
    static String lookup(const String& table, const String& id);
    // Every row, sorted by table then id: table TAB id TAB text, one a line;
    // a newline inside a text is written as "\n".
    static String dumpStringTableIdsAndMessages();

    struct Row {
        const char* table;
        const char* id;
        const char* text;
    };
    // All rows, for checks that walk the table.
    static const std::vector<Row>& rows();
};

// Reads the messages a solver run left in the run folder. The file is
// destDir + "/" + toolName + ".messages" (destDir from the substitutions, the
// working folder if it is empty): UTF-8, one message a line, each line as it
// stands; lines blank after trimming are skipped. A missing file gives no
// messages, and outputs is left as it is.
class MOSAQ_EXPORT FileParser {
public:
    static StringList getToolMessagesUsingConfigFile(const String& portalName,
                                                     const String& toolName,
                                                     const StringStringMap& substitutions,
                                                     StringStringMap& outputs);
};

}  // namespace Support
}  // namespace MOSAQ
