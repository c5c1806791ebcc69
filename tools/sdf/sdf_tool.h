// Shared pieces of the sdf command-line tool: reading variables through the
// library's public interface, turning their elements into text, the CSV and
// JSON writers, and the commands themselves.
//
// Invariants: the tool opens SDF files for reading only (calc alone opens
// its file for writing) and closes every channel it opens before a command
// returns; the operations that change anything on disk are calc, the
// deletion of lock files and the new file that salvage writes (never over an
// existing file unless told, never over its input). Elements are always
// addressed in storage order (first index fastest).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace sdftool {

// Exit codes of the program (also listed in the usage text).
enum Exit { kOk = 0, kFailed = 1, kUsage = 2, kSalvageLosses = 3 };

// ---------------------------------------------------------------- files

// A channel opened for reading; closed with "KEEP" when it goes.
class SdfFile {
public:
    SdfFile() = default;
    SdfFile(const SdfFile&) = delete;
    SdfFile& operator=(const SdfFile&) = delete;
    ~SdfFile();
    // 0, or the library's code (its message has gone to standard error).
    int open(const std::string& path);
    int channel() const { return channel_; }

private:
    int channel_ = -1;
};

// Names matching each pattern (a name or a template), in table order,
// without repeats. An empty pattern list means every variable. Returns 0, a
// library code, or -1 when a pattern matched nothing (reported here).
int resolveNames(int ch, const std::vector<std::string>& patterns, std::vector<std::string>& out);

// What one variable is, without its values.
struct VarInfo {
    std::string name;
    int base = 0;               // base type code
    bool array = false;
    std::vector<int64_t> dims;  // extents, first dimension first; empty for a scalar
    int elen = 0;               // bytes per element (string length of a character scalar)
    std::string units, desc;
    size_t count() const;       // elements: 1 for a scalar
};

// 0 or the code of the first call that failed.
int loadInfo(int ch, const std::string& name, VarInfo& out);

// One element, ready for any of the output forms.
struct Element {
    enum Kind { Integer, Real, Logical, Complex, Text } kind = Integer;
    int64_t i = 0;
    double re = 0, im = 0;
    bool single = false;  // REAL or CMPX: print with float precision
    std::string_view text;
};

// The values of one variable, in storage order.
class Values {
public:
    // 0, a library code, or -1 for a variable the tool refuses to read
    // (reported here with the reason).
    int load(int ch, const VarInfo& info);
    size_t size() const;
    Element at(size_t k) const;

private:
    int base_ = 0;
    int elen_ = 0;
    std::vector<unsigned char> raw_;
    std::vector<std::string> text_;
};

// ------------------------------------------------------------ formatting

// The parts appended in order into one string. Text is built this way rather
// than as "literal" + std::string(...): g++ 12 at -O3 reports a false
// -Wrestrict overlap inside the library's insert-at-front path for that form.
std::string concat(std::initializer_list<std::string_view> parts);

const char* typeName(int base);
std::string shapeText(const VarInfo& v);         // "scalar", "21", "21x5"
std::string typeText(const VarInfo& v);          // "double", "double[21x5]"
std::string numberText(double v, bool single);   // shortest text that reads back
std::string elementText(const Element& e);       // for people: strings quoted
std::string printable(std::string_view s);       // control characters escaped
// The indices of element k, comma-separated, for an array of these extents.
std::string indexText(const std::vector<int64_t>& dims, size_t k, const char* sep);

// --------------------------------------------------------------- writers

std::string csvField(std::string_view s);
std::string csvValue(const Element& e);
std::string jsonString(std::string_view s);
std::string jsonValue(const Element& e);
// The values nested by dimension, first dimension outermost.
std::string jsonNested(const VarInfo& info, const Values& values);

// -------------------------------------------------------------- commands

// Parsed command line of one command: positional arguments and options.
struct Args {
    std::vector<std::string> positional;
    std::map<std::string, std::string> options;  // "--csv" -> "", "-o" -> path
    bool has(const char* name) const { return options.count(name) != 0; }
    std::string get(const char* name) const;
};

// A variable's facts and all its values; false (said on standard error)
// when either can't be read.
bool loadVariable(int ch, const std::string& name, VarInfo& v, Values& vals);
// Prints the values of one variable, indented, under its heading line.
void dumpValues(const VarInfo& v, const Values& vals);

int cmdInfo(const Args& a);
int cmdLs(const Args& a);
int cmdDump(const Args& a);
int cmdCheck(const Args& a);
int cmdExport(const Args& a);
int cmdLocks(const Args& a);
int cmdUnits(const Args& a);
int cmdSalvage(const Args& a);
int cmdCalc(const Args& a);

// "sdf: " and the text on standard error.
void complain(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

}  // namespace sdftool
