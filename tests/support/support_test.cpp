// Tests of the support layer: path texts and file operations, the line
// readers and the writer, the message table and the reader of solver messages.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string_view>
#include <utime.h>

#include "fake_host.h"
#include "mosaq/support.h"

using namespace MOSAQ;
using namespace MOSAQ::Support;
using fakehost::readFile;
using fakehost::TempDir;

namespace {

// Puts the default file system calls back at the end of a test that swapped one.
struct OpsGuard {
    ~OpsGuard() { fileSystemOps() = defaultFileSystemOps(); }
};

// Message ids in the string literals of a source text: a whole literal made of
// ".err.", ".warn." or ".msg." and a name, with ".Portal" in front or not.
std::set<String> messageIdsIn(const String& src) {
    std::set<String> ids;
    for (std::string_view kind : {"\".err.", "\".warn.", "\".msg.", "\".Portal.err.", "\".Portal.warn.", "\".Portal.msg."}) {
        for (size_t q = src.find(kind); q != String::npos; q = src.find(kind, q + 1)) {
            size_t end = q + kind.size();
            while (end < src.size() && (isalnum(static_cast<unsigned char>(src[end])) || src[end] == '_')) ++end;
            if (end > q + kind.size() && end < src.size() && src[end] == '"')
                ids.insert(src.substr(q + 1 + (kind[2] == 'P' ? 7 : 0), end - q - 1 - (kind[2] == 'P' ? 7 : 0)));
        }
    }
    return ids;
}

}  // namespace

TEST(FilePath, SplitsPathsAtEitherSeparator) {
    struct Case { const char *path, *base, *stem, *ext, *parent; };
    const Case cases[] = {
        {"dir/sub/deck.dat", "deck.dat", "deck", "dat", "dir/sub"},
        {"dir\\sub\\deck.dat", "deck.dat", "deck", "dat", "dir\\sub"},
        {"dir\\sub/deck.dat", "deck.dat", "deck", "dat", "dir\\sub"},
        {"C:\\deck.dat", "deck.dat", "deck", "dat", "C:\\"},
        {"/deck.dat", "deck.dat", "deck", "dat", "/"},
        {"deck.dat", "deck.dat", "deck", "dat", "."},
        {"run/archive.tar.gz", "archive.tar.gz", "archive.tar", "gz", "run"},
        {"run.d/noext", "noext", "noext", "", "run.d"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(File::base(c.path, true), c.base);
        EXPECT_EQ(File::base(c.path, false), c.stem);
        EXPECT_EQ(File::extension(c.path), c.ext);
        EXPECT_EQ(File::parentFolder(c.path), c.parent);
    }
    for (const char* p : {"/a/b", "\\a", "C:\\x", "d:y", "\\\\server\\share"}) EXPECT_TRUE(File::isAbsolutePath(p)) << p;
    for (const char* p : {"", "a/b", "./a", "..\\a", "1:\\x"}) EXPECT_FALSE(File::isAbsolutePath(p)) << p;
}

TEST(FileOps, RenameNeverReplacesATargetAndRemoveDeletesOnce) {
    TempDir dir;
    const String a = dir.write("a", "A"), b = dir.write("b", "B"), c = dir.file("c");
    EXPECT_FALSE(File::rename(a, b));
    EXPECT_EQ(readFile(a), "A");
    EXPECT_EQ(readFile(b), "B");
    EXPECT_TRUE(File::rename(a, c));
    EXPECT_FALSE(File::exists(a));
    EXPECT_EQ(readFile(c), "A");
    EXPECT_FALSE(File::rename(dir.file("missing"), dir.file("d")));
    EXPECT_TRUE(File::remove(c));
    EXPECT_FALSE(File::exists(c));
    EXPECT_FALSE(File::remove(c));
}

TEST(FileOps, ReportsFailureOfTheSystemCalls) {
    OpsGuard guard;
    TempDir dir;
    const String a = dir.write("a", "A");
    fileSystemOps().rename = [](const char*, const char*) { errno = EIO; return -1; };
    fileSystemOps().unlink = [](const char*) { errno = EACCES; return -1; };
    EXPECT_FALSE(File::rename(a, dir.file("c")));
    EXPECT_FALSE(File::remove(a));
    EXPECT_TRUE(File::exists(a));
}

TEST(FileOps, ModifiedTimeIsSecondsOrZeroWhenMissing) {
    TempDir dir;
    const String f = dir.write("f", "x");
    utimbuf t{1000, 2000000};
    ASSERT_EQ(::utime(f.c_str(), &t), 0);
    EXPECT_EQ(File::modifiedTime(f), 2000000u);
    EXPECT_EQ(File::modifiedTime(dir.file("missing")), 0u);
}

TEST(FileReader, DropsOneCarriageReturnAndKeepsTheEndOfFileState) {
    TempDir dir;
    FileReader r(dir.write("f", "a\r\nb\r\r\n\nlast"), false);
    StringList lines;
    for (String line; r.getLine(line, '\n');) lines.push_back(line);
    EXPECT_EQ(lines, (StringList{"a", "b\r", "", "last"}));
    EXPECT_EQ(r.getLine('\n'), "");
    // Whether the last line had a line feed shows in eof() after reading it.
    FileReader withFeed(dir.write("f1", "x\n"), false), without(dir.write("f2", "x"), false);
    EXPECT_EQ(withFeed.getLine('\n'), "x");
    EXPECT_FALSE(withFeed.eof());
    EXPECT_EQ(without.getLine('\n'), "x");
    EXPECT_TRUE(without.eof());
    FileReader missing(dir.file("missing"), false);
    EXPECT_FALSE(missing.is_open());
}

TEST(FileWriter, TruncatesAndCopiesAReaderByteForByte) {
    TempDir dir;
    const String src = dir.write("src", "one\r\ntwo\n\x01\xff"), dst = dir.write("dst", "old content here");
    FileReader in(src, false);
    FileWriter out(dst, false);
    out << in.rdbuf();
    out.close();
    EXPECT_EQ(readFile(dst), readFile(src));
    FileWriter late;
    late.open(dst, std::ios_base::out, 0644);
    late << "x\n";
    late.close();
    EXPECT_EQ(readFile(dst), "x\n");
}

TEST(FileBufferedReader, CountsLinesLikeRepeatedGetlineAndStaysWithinThem) {
    const std::pair<const char*, StringList> cases[] = {
        {"a\nb\n", {"a", "b"}}, {"a\nb", {"a", "b"}}, {"", {}}, {"\n", {""}}, {"a\r\n\r\nb\r\n", {"a", "", "b"}},
    };
    TempDir dir;
    for (const auto& [content, lines] : cases) {
        FileBufferedReader r(dir.write("f", content));
        EXPECT_TRUE(r.is_open());
        StringList got;
        for (int i = 0; i < r.numLines(); ++i) got.push_back(r.getLine(i));
        EXPECT_EQ(got, lines) << testing::PrintToString(String(content));
    }
    FileBufferedReader r(dir.write("f", "zero\none\ntwo"));
    EXPECT_EQ(r.getCurrentLine(), "zero");
    EXPECT_TRUE(r.gotoLine(2));
    for (int bad : {-1, 3}) {
        EXPECT_FALSE(r.gotoLine(bad)) << bad;
        EXPECT_EQ(r.getLine(bad), "");
    }
    EXPECT_EQ(r.currentRowNumber(), 2);
    EXPECT_EQ(r.getCurrentLine(), "two");
    EXPECT_FALSE(FileBufferedReader(dir.file("missing")).is_open());
}

TEST(StringTable, LookupMatchesExactlyAndGivesUnknownIdsBack) {
    const auto& row = StringTable::rows().at(0);
    EXPECT_EQ(StringTable::lookup(row.table, row.id), row.text);
    const std::pair<String, String> unknown[] = {{"ZeltraSDF", ".Portal.err.noSuchMessage"},
                                                 {"zeltrasdf", ".Portal.err.fileNotFound"},
                                                 {"NoTable", ".Portal.err.fileNotFound"},
                                                 {"ZeltraSDF", ".err.fileNotFound"}};
    for (const auto& [table, id] : unknown) EXPECT_EQ(StringTable::lookup(table, id), id) << table;
}

TEST(StringTable, EveryRowIsAUsablePattern) {
    const std::set<String> tables{"ZeltraSDF", "Marking", "Xml", "Scripting", "tagging"};
    std::set<std::pair<String, String>> keys;
    for (const auto& row : StringTable::rows()) {
        const String id = row.id, text = row.text;
        SCOPED_TRACE(String(row.table) + " " + id);
        EXPECT_TRUE(tables.count(row.table));
        EXPECT_TRUE(keys.emplace(row.table, id).second) << "duplicate row";
        EXPECT_NE(text.find_first_not_of(" \t\n"), String::npos) << "empty text";
        std::set<int> numbers;
        for (size_t p = text.find('%'); p != String::npos && p + 1 < text.size(); p = text.find('%', p + 1))
            if (isdigit(static_cast<unsigned char>(text[p + 1]))) numbers.insert(text[p + 1] - '0');
        for (int n : numbers) EXPECT_TRUE(n >= 1 && n <= int(numbers.size())) << "placeholder %" << n;
        if (id.find(".msg.") != String::npos || id.find(".warn.") != String::npos) {
            EXPECT_EQ(text.find("ERROR"), String::npos);
            EXPECT_EQ(text.find("Exception caught"), String::npos);
        }
    }
    EXPECT_GT(keys.size(), 100u);
}

TEST(StringTable, DumpHasOneSortedLinePerRow) {
    const String dump = StringTable::dumpStringTableIdsAndMessages();
    std::vector<std::pair<String, String>> order;
    for (size_t start = 0, end; (end = dump.find('\n', start)) != String::npos; start = end + 1) {
        const String line = dump.substr(start, end - start);
        const size_t t1 = line.find('\t'), t2 = line.find('\t', t1 + 1);
        ASSERT_NE(t2, String::npos) << line;
        order.emplace_back(line.substr(0, t1), line.substr(t1 + 1, t2 - t1 - 1));
        String escaped;
        for (char ch : StringTable::lookup(order.back().first, order.back().second))
            escaped += ch == '\n' ? String("\\n") : String(1, ch);
        EXPECT_EQ(line.substr(t2 + 1), escaped) << line;
    }
    EXPECT_EQ(dump.back(), '\n');
    EXPECT_EQ(order.size(), StringTable::rows().size());
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(StringTable, EveryMessageIdUsedInTheSourcesHasARow) {
    std::set<String> known, used;
    for (const auto& row : StringTable::rows()) known.insert(row.id);
    for (const char* sub : {"/portals", "/tagging"}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(String(ZELTRA_SOURCE_DIR) + sub)) {
            const String ext = entry.path().extension().string();
            if (entry.path().filename() == "string_table_data.inc" || (ext != ".cpp" && ext != ".h" && ext != ".inc"))
                continue;
            for (const String& id : messageIdsIn(readFile(entry.path().string()))) {
                used.insert(id);
                EXPECT_TRUE(known.count(".Portal" + id)) << id << " in " << entry.path();
            }
        }
    }
    EXPECT_TRUE(used.count(".err.parse")) << "the scan found none of the known uses";
}

TEST(FileParser, GivesNonBlankLinesUnchangedAndInOrder) {
    TempDir dir;
    dir.write("analysis_execution.messages", "ERROR: first\r\n\n  \t\r\nNOTE: second\n  WARNING: third  \nlast");
    dir.write("other.messages", "NOTE: other tool\n");
    StringStringMap outputs;
    EXPECT_EQ(FileParser::getToolMessagesUsingConfigFile("ZeltraSDF", "analysis_execution", {{"destDir", dir.path()}},
                                                         outputs),
              (StringList{"ERROR: first", "NOTE: second", "  WARNING: third  ", "last"}));
    EXPECT_TRUE(outputs.empty());
}

TEST(FileParser, EmptyDestDirMeansTheWorkingFolderAndMissingFileGivesNothing) {
    TempDir dir;
    StringStringMap kept{{"k", "v"}};
    EXPECT_TRUE(FileParser::getToolMessagesUsingConfigFile("P", "tool", {{"destDir", dir.path()}}, kept).empty());
    EXPECT_EQ(kept, (StringStringMap{{"k", "v"}}));
    dir.write("tool.messages", "NOTE: here\n");
    const auto previous = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    const StringList withEmpty = FileParser::getToolMessagesUsingConfigFile("P", "tool", {{"destDir", ""}}, kept);
    const StringList withNone = FileParser::getToolMessagesUsingConfigFile("P", "tool", {}, kept);
    std::filesystem::current_path(previous);
    EXPECT_EQ(withEmpty, StringList{"NOTE: here"});
    EXPECT_EQ(withNone, StringList{"NOTE: here"});
}
