// The token engine every line-oriented tagging module shares: find a token on
// a line, read it, replace it. A delimited token is found by its ordinal among
// the runs of non-delimiter characters (no quoting of any kind); a fixed-width
// token by its columns. Replacing a delimited token keeps every delimiter in
// place; replacing a fixed-width token never changes the line's length.
#include <algorithm>
#include <climits>

#include "zeltra/tagging.h"

namespace MOSAQ::Portals {

namespace {

String num(double v) { return HelperBase::numberText(v); }

bool isDelimiter(char c, const String& delimSet) {
    return delimSet.find(c) != String::npos;
}

// Picks the plain or the "InFile" form of a message and its arguments.
StringList withFile(const String& fileName, StringList args, std::size_t filePos) {
    if (!fileName.empty()) args.insert(args.begin() + static_cast<long>(filePos), fileName);
    return args;
}

String keyFor(const String& key, const String& fileName) {
    return fileName.empty() ? key : key + "InFile";
}

// Appends a message of the shared "tagging" table at a level, every argument
// kept in place (some carry five, more than the three-argument forms take).
void report(String& errors, const char* level, const String& key, const StringList& args) {
    const String text = Support::StringTable::lookup("tagging", ".Portal" + key);
    HelperBase::addLine(errors, HelperBase::formatList(HelperBase::normalizeLevel(text, level), args));
}

}  // namespace

StringList TaggingImpl::splitTokens(const String& line, const String& delimSet) {
    StringList tokens;
    std::size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && isDelimiter(line[i], delimSet)) ++i;
        if (i == line.size()) break;
        std::size_t start = i;
        while (i < line.size() && !isDelimiter(line[i], delimSet)) ++i;
        tokens.push_back(line.substr(start, i - start));
    }
    return tokens;
}

int TaggingImpl::countTokens(const String& line, const String& delimSet) {
    int count = 0;
    bool inToken = false;
    for (char c : line) {
        const bool delim = isDelimiter(c, delimSet);
        if (!delim && !inToken) ++count;
        inToken = !delim;
    }
    return count;
}

bool TaggingImpl::parseDelimiters(const String& spec, String& delimSet, String& errors) {
    for (std::size_t i = 0; i < spec.size(); ++i) {
        if (spec[i] != '\\') {
            delimSet += spec[i];
            continue;
        }
        const char next = i + 1 < spec.size() ? spec[i + 1] : '\0';
        switch (next) {
            case 't': delimSet += '\t'; break;
            case 's': delimSet += ' '; break;
            case ',': delimSet += ','; break;
            case '\\': delimSet += "\\\\"; break;
            default:
                report(errors, "ERROR", ".err.invalidDelimBackslash", {});
                return false;
        }
        ++i;
    }
    return true;
}

bool TaggingImpl::locateFixedToken(const String& line, const String& widths, int col, int& start,
                                   int& end, String& errors) {
    if (col < 1) {
        report(errors, "ERROR", ".err.fixedStringSmallStartPos", {num(col)});
        return false;
    }
    const StringList pieces = split(widths, '.', true);
    if (pieces.empty()) {
        report(errors, "ERROR", ".err.fixedStringSmallColWidth", {String()});
        return false;
    }
    // Columns in 64 bits: a huge ordinal or width must clamp, not overflow.
    long long s = start, e = end, previous = 0;
    for (std::size_t k = 1; k < pieces.size(); ++k) {
        const int width = wholeNumber(pieces[k - 1]);
        if (width < 1) {
            report(errors, "ERROR", ".err.fixedStringSmallColWidth",
                         {pieces[k - 1]});
            return false;
        }
        s += previous;
        e += width;
        previous = width;
        if (static_cast<long long>(k) == col) {
            start = static_cast<int>(std::min<long long>(s, INT_MAX));
            end = static_cast<int>(std::min<long long>(e, INT_MAX));
            return true;
        }
    }
    const String& last = pieces.back();
    const long long ordinal = static_cast<long long>(pieces.size());
    if (isNumber(last)) {
        const int width = wholeNumber(last);
        if (width < 1) {
            report(errors, "ERROR", ".err.fixedStringSmallColWidth", {last});
            return false;
        }
        s += previous;
        e += width;
        // The last width repeats for every higher ordinal.
        const long long repeats = col - ordinal;
        s += repeats * width;
        e += repeats * width;
    } else if (last == "*") {
        s += previous;
        e = static_cast<long long>(line.size());
    } else {
        report(errors, "ERROR", ".err.fixedStringDelimsUnknownChar", {last});
        return false;
    }
    start = static_cast<int>(std::min<long long>(s, INT_MAX));
    end = static_cast<int>(std::min<long long>(e, INT_MAX));
    return true;
}

bool TaggingImpl::extractDelimToken(int col, const String& line, int row, const String& fileName,
                                    const String& delimSet, String& value, String& errors) {
    const StringList tokens = splitTokens(line, delimSet);
    const int count = static_cast<int>(tokens.size());
    if (col < 1 || col > count) {
        report(errors, "ERROR", keyFor(".err.extractDelimToken", fileName),
                     withFile(fileName, {num(col), num(row), num(count), delimSet}, 2));
        return false;
    }
    value = tokens[static_cast<std::size_t>(col - 1)];
    return true;
}

// The checks shared by reading and replacing a fixed-width token, in their
// order. Clips end to the line's length with a warning.
namespace {

bool checkFixedColumns(const char* op, int start, int& end, const String& line, int row,
                              const String& fileName, bool reportAsked, String& errors) {
    const int length = static_cast<int>(line.size());
    const String base = String(".err.") + op + "FixedToken";
    if (start > length) {
        report(errors, "ERROR", keyFor(base + "BigStartPos", fileName),
                                     withFile(fileName, {num(row), num(start), num(length)}, 1));
        return false;
    }
    if (start < 1) {
        report(errors, "ERROR", keyFor(base + "SmallStartPos", fileName),
                                     withFile(fileName, {num(row), num(start)}, 1));
        return false;
    }
    if (end > length) {
        const String warn = String(".warn.") + op + "FixedTokenBigEndPos";
        StringList args = reportAsked ? StringList{num(row), num(end), num(length)}
                                      : StringList{num(row), num(length)};
        end = length;
        report(errors, "WARNING", keyFor(warn, fileName),
                                     withFile(fileName, args, 1));
    }
    if (end < start) {
        report(errors, "ERROR", keyFor(base + "SmallEndPos", fileName),
                                     withFile(fileName, {num(row), num(end), num(start)}, 1));
        return false;
    }
    return true;
}

}  // namespace

bool TaggingImpl::extractFixedToken(int start, int end, const String& line, int row,
                                    const String& fileName, String& value, String& errors) {
    if (!checkFixedColumns("extract", start, end, line, row, fileName, true, errors)) return false;
    value = line.substr(static_cast<std::size_t>(start - 1), static_cast<std::size_t>(end - start + 1));
    return true;
}

bool TaggingImpl::updateDelimToken(int col, const String& line, int row, const String& fileName,
                                   const String& delimSet, const String& value, String& newLine,
                                   String& errors) {
    const int count = countTokens(line, delimSet);
    if (count < col) {
        report(errors, "ERROR", keyFor(".err.updateDelimToken", fileName),
                     withFile(fileName, {num(col), num(row), num(count), delimSet}, 2));
        return false;
    }
    int ordinal = 1;
    bool tokenSeen = false, lastWasDelim = false, written = false;
    newLine.reserve(line.size() + value.size());
    for (char c : line) {
        if (isDelimiter(c, delimSet)) {
            if (tokenSeen && !lastWasDelim) ++ordinal;
            newLine += c;
            lastWasDelim = true;
        } else if (ordinal != col) {
            newLine += c;
            tokenSeen = true;
            lastWasDelim = false;
        } else if (!written) {
            newLine += value;
            written = tokenSeen = true;
            lastWasDelim = false;
        }
    }
    return true;
}

bool TaggingImpl::replaceFixedToken(int start, int& end, const String& line, int row,
                                    const String& fileName, const String& value, String& newLine,
                                    String& errors) {
    newLine = line;
    if (!checkFixedColumns("replace", start, end, line, row, fileName, false, errors)) return false;
    const std::size_t width = static_cast<std::size_t>(end - start + 1);
    String fitted = value;
    if (value.size() != width) {
        report(errors, "WARNING", keyFor(".warn.replaceFixedTokenDiffLength", fileName),
                     withFile(fileName, {num(row), num(start), num(end), num(double(value.size()))}, 1));
        if (value.size() > width) fitted = value.substr(0, width);
        else fitted = String(width - value.size(), ' ') + value;
    }
    newLine.replace(static_cast<std::size_t>(start - 1), width, fitted);
    return true;
}

}  // namespace MOSAQ::Portals
