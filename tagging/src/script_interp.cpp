// The script interpreter: the statement loop, LOOP with its nesting, and the
// statements that move the cursor or switch the current parameter.
//
// Invariants: a statement that fails leaves the cursor where it found it and
// reports ".err.couldNotExecuteLine" before its own reason; script line
// numbers count every line of the code, empty ones and comments too, except
// that a loop body is gathered without its empty lines. A LOOP(EOL) ends when
// its body fails, and also, with an error, when a round ends on a line where
// an earlier round of it ended: such a loop would otherwise never stop.
#include <climits>
#include <cmath>
#include <set>

#include "zeltra/tagging.h"

namespace MOSAQ::Portals {

namespace {

using Reader = Support::FileBufferedReader;

bool startsWith(const String& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

struct Keyword {
    const char* word;
    int side;  // 0 both, 1 input only, 2 output only
    ScriptTagging::Statement run;
};

}  // namespace

int ScriptTagging::roundedArgument(const String& text) {
    const double v = std::round(HelperBase::parseNumber(text));
    if (!(v > -2147483648.0)) return v != v ? 0 : INT32_MIN;
    if (!(v < 2147483647.0)) return INT32_MAX;
    return static_cast<int>(v);
}

String ScriptTagging::currentLine(const Reader& reader, const ScriptContext& state) {
    const int row = reader.currentRowNumber();
    if (auto it = state.changedLines.find(row); it != state.changedLines.end()) return it->second;
    return reader.getCurrentLine();
}

void ScriptTagging::failLine(String& errors, int lineNumber, const String& statement,
                             const String& key, const StringList& args) {
    addLevelLine(errors, "ERROR", moduleText(".err.couldNotExecuteLine"),
                 {numberText(lineNumber), statement});
    if (!key.empty()) addLevelLine(errors, "ERROR", moduleText(key), args);
}

bool ScriptTagging::argumentsOf(const String& statement, int lineNumber, std::size_t least,
                                std::size_t most, const char* countKey, StringList& args,
                                String& errors) {
    String reason;
    if (!parseArguments(statement, args, reason)) {
        failLine(errors, lineNumber, statement, String(), {});
        addLine(errors, reason);
        return false;
    }
    if (args.size() >= least && args.size() <= most) return true;
    failLine(errors, lineNumber, statement, countKey, {numberText(double(args.size()))});
    return false;
}

bool ScriptTagging::delimitersOf(const String& arg, const String& statement, int lineNumber,
                                 String& set, String& errors) {
    String reason;
    if (parseDelimiters(arg, set, reason)) return true;
    failLine(errors, lineNumber, statement, String(), {});
    addLine(errors, reason);
    return false;
}

bool ScriptTagging::executeLines(Reader& reader, ScriptContext& state, String& errors) {
    // In table order: a keyword is recognised as the start of the line, so
    // "END_LOOP" must come before "END".
    static const Keyword kKeywords[] = {
        {"MOVE_UP", 0, &ScriptTagging::moveUp},
        {"MOVE_DOWN", 0, &ScriptTagging::moveDown},
        {"GOTO_LINE", 0, &ScriptTagging::gotoLine},
        {"GOTO_STRING", 0, &ScriptTagging::gotoString},
        {"GOTO_TOP", 0, &ScriptTagging::gotoTop},
        {"GOTO_END", 0, &ScriptTagging::gotoEnd},
        {"NEXT_PARAMETER", 0, &ScriptTagging::nextParameter},
        {"GET_VALUE_FREE", 2, &ScriptTagging::getValueFree},
        {"GET_VALUE_FIXED", 2, &ScriptTagging::getValueFixed},
        {"GET_RELATIVE_VALUE_FREE", 2, &ScriptTagging::getRelativeFree},
        {"GET_RELATIVE_VALUE_FIXED", 2, &ScriptTagging::getRelativeFixed},
        {"GET_COLUMN_FREE", 2, &ScriptTagging::getColumnFree},
        {"GET_COLUMN_FIXED", 2, &ScriptTagging::getColumnFixed},
        {"SET_VALUE_FREE", 1, &ScriptTagging::setValueFree},
        {"SET_VALUE_FIXED", 1, &ScriptTagging::setValueFixed},
        {"SET_RELATIVE_VALUE_FREE", 1, &ScriptTagging::setRelativeFree},
        {"SET_RELATIVE_VALUE_FIXED", 1, &ScriptTagging::setRelativeFixed},
        {"NEXT_VALUE", 1, &ScriptTagging::nextValue},
    };
    // A copy: expansion must not change the text of a loop body.
    const StringList lines = state.lines;
    int lineNumber = state.firstLineNumber;
    for (std::size_t i = 0; i < lines.size(); ++i, ++lineNumber) {
        String line = trimmed(lines[i]);
        if (line.empty() || line[0] == '$') continue;
        expandVariables(line, lineNumber, state, errors);

        if (startsWith(line, "SET_PARAMETER_LIST")) continue;
        if (startsWith(line, "OPEN_FILE")) {
            addError(errors, moduleText(".err.noOpenFileSupport"));
            return false;
        }
        if (startsWith(line, "CLOSE_FILE")) {
            addWarning(errors, moduleText(".warn.noCloseFileSupport"));
            continue;
        }
        if (startsWith(line, "END_LOOP")) {
            addLevelLine(errors, "ERROR", moduleText(".err.noLoop"),
                         {numberText(lineNumber), line});
            return false;
        }
        if (startsWith(line, "END")) {
            addWarning(errors, moduleText(".warn.noEndSupport"));
            return false;
        }
        if (startsWith(line, "LOOP")) {
            if (!runLoop(reader, state, line, lines, i, lineNumber, errors)) return false;
            continue;
        }
        const Keyword* found = nullptr;
        for (const Keyword& k : kKeywords) {
            if (startsWith(line, k.word)) {
                found = &k;
                break;
            }
        }
        const int side = state.isInput ? 1 : 2;
        if (!found || (found->side != 0 && found->side != side)) {
            addLevelLine(errors, "ERROR", moduleText(".err.unrecognizedKeyword"),
                         {line, numberText(lineNumber)});
            return false;
        }
        if (!(this->*(found->run))(reader, state, line, lineNumber, errors)) return false;
    }
    return true;
}

// Gathers the loop that starts at lines[index] (`first` is that line as
// expanded; the body stays unexpanded until it runs), runs it, and leaves
// index and lineNumber on its END_LOOP.
bool ScriptTagging::runLoop(Reader& reader, ScriptContext& state, const String& first,
                            const StringList& lines, std::size_t& index, int& lineNumber,
                            String& errors) {
    const int loopLine = lineNumber;
    StringList loop{first};
    int depth = 1;
    std::size_t j = index;
    while (depth > 0) {
        ++j;
        ++lineNumber;
        if (j >= lines.size()) {
            addError(errors, moduleText(".err.noEndLoop"));
            return false;
        }
        const String line = trimmed(lines[j]);
        if (line.empty()) continue;
        if (startsWith(line, "END_LOOP")) --depth;
        else if (startsWith(line, "LOOP")) ++depth;
        loop.push_back(line);
    }
    index = j;
    const StringList savedLines = std::move(state.lines);
    const int savedFirst = state.firstLineNumber;
    state.lines = std::move(loop);
    state.firstLineNumber = loopLine;
    const bool ok = loopStatement(reader, state, first, loopLine, errors);
    state.lines = savedLines;
    state.firstLineNumber = savedFirst;
    return ok;
}

bool ScriptTagging::loopStatement(Reader& reader, ScriptContext& state, const String& statement,
                                  int lineNumber, String& errors) {
    traceExecuting(reader.currentRowNumber(), currentLine(reader, state), statement, lineNumber);
    StringList args;
    if (!argumentsOf(statement, lineNumber, 1, 1, ".err.loopNumOptions", args, errors))
        return false;
    // Blanks around the argument don't change what it means.
    const String arg = trimmed(args[0]);
    const bool untilEnd = arg == "EOL";
    int rounds = 0;
    if (untilEnd) {
        addNote(errors, moduleText(".msg.loopUntilEndOfFile"));
    } else if (isNumber(arg)) {
        rounds = roundedArgument(arg);
    } else {
        String dropped;
        const String v = context ? context->getDesignValue("", arg, "", "Default", dropped) : "";
        if (v.empty()) {
            failLine(errors, lineNumber, statement, ".err.loopNumItersMissing", {arg});
            return false;
        }
        rounds = roundedArgument(v);
    }
    if (!untilEnd && rounds < 1) {
        failLine(errors, lineNumber, statement, ".err.loopNumItersSmall", {arg});
        return false;
    }

    StringList body(state.lines.begin() + 1, state.lines.end() - 1);
    state.lines = std::move(body);
    state.firstLineNumber += 1;
    String loopErrors;
    if (!untilEnd) {
        for (int r = 0; r < rounds; ++r) {
            if (!executeLines(reader, state, loopErrors)) {
                addError(errors, loopErrors);
                return false;
            }
        }
        return true;
    }
    std::set<int> endRows{reader.currentRowNumber()};
    for (int done = 0;; ++done) {
        if (!executeLines(reader, state, loopErrors)) {
            if (done > 0) {
                addNote(errors, loopErrors);
                addNote(errors, moduleText(state.isInput ? ".msg.loopNoMoreDataReplaced"
                                                         : "msg.loopNoMoreDataExtracted"));
                return true;
            }
            failLine(errors, lineNumber, statement, String(), {});
            addError(errors, loopErrors);
            addError(errors, moduleText(state.isInput ? ".err.loopNoDataReplaced"
                                                      : ".err.loopNoDataExtracted"));
            return false;
        }
        const int row = reader.currentRowNumber();
        if (!endRows.insert(row).second) {
            failLine(errors, lineNumber, statement, ".err.loopNoProgress",
                     {numberText(double(done + 1)), numberText(row + 1)});
            return false;
        }
    }
}

bool ScriptTagging::moveDown(Reader& reader, ScriptContext& state, const String& statement,
                             int lineNumber, String& errors) {
    const int row = reader.currentRowNumber();
    traceExecuting(row, currentLine(reader, state), statement, lineNumber);
    StringList args;
    if (!argumentsOf(statement, lineNumber, 1, 1, ".err.moveDownNumOptions", args, errors))
        return false;
    const int n = roundedArgument(args[0]);
    if (n < 1) {
        failLine(errors, lineNumber, statement, ".err.moveDownLinesSmall", {numberText(n)});
        return false;
    }
    if (static_cast<long long>(row) + n >= reader.numLines()) {
        failLine(errors, lineNumber, statement, ".err.moveDownLinesBig", {numberText(n)});
        return false;
    }
    reader.gotoLine(row + n);
    traceFinalLine(reader.currentRowNumber(), currentLine(reader, state));
    return true;
}

bool ScriptTagging::moveUp(Reader& reader, ScriptContext& state, const String& statement,
                           int lineNumber, String& errors) {
    const int row = reader.currentRowNumber();
    traceExecuting(row, currentLine(reader, state), statement, lineNumber);
    StringList args;
    if (!argumentsOf(statement, lineNumber, 1, 1, ".err.moveUpNumOptions", args, errors))
        return false;
    const int n = roundedArgument(args[0]);
    if (n < 1) {
        failLine(errors, lineNumber, statement, ".err.moveUpNumLinesSmall", {numberText(n)});
        return false;
    }
    // Landing on the first line is refused here; GOTO_TOP goes there.
    if (n >= row) {
        failLine(errors, lineNumber, statement, ".err.moveUpNumLinesBig",
                 {numberText(n), numberText(row + 1)});
        return false;
    }
    reader.gotoLine(row - n);
    traceFinalLine(reader.currentRowNumber(), currentLine(reader, state));
    return true;
}

bool ScriptTagging::gotoLine(Reader& reader, ScriptContext& state, const String& statement,
                             int lineNumber, String& errors) {
    traceExecuting(reader.currentRowNumber(), currentLine(reader, state), statement, lineNumber);
    StringList args;
    if (!argumentsOf(statement, lineNumber, 1, 1, ".err.gotoLineNumOptions", args, errors))
        return false;
    const int n = roundedArgument(args[0]);
    if (n < 1 || n > reader.numLines()) {
        failLine(errors, lineNumber, statement, ".err.gotoLineInvalidLine",
                 {trimmed(args[0]), numberText(reader.numLines())});
        return false;
    }
    reader.gotoLine(n - 1);
    traceFinalLine(reader.currentRowNumber(), currentLine(reader, state));
    return true;
}

bool ScriptTagging::gotoTop(Reader& reader, ScriptContext& state, const String& statement,
                            int lineNumber, String&) {
    traceExecuting(reader.currentRowNumber(), currentLine(reader, state), statement, lineNumber);
    reader.gotoLine(0);
    traceFinalLine(reader.currentRowNumber(), currentLine(reader, state));
    return true;
}

bool ScriptTagging::gotoEnd(Reader& reader, ScriptContext& state, const String& statement,
                            int lineNumber, String&) {
    traceExecuting(reader.currentRowNumber(), currentLine(reader, state), statement, lineNumber);
    if (reader.gotoLine(reader.numLines() - 1)) {
        while (reader.currentRowNumber() > 0 && currentLine(reader, state).empty())
            reader.gotoLine(reader.currentRowNumber() - 1);
    }
    traceFinalLine(reader.currentRowNumber(), currentLine(reader, state));
    return true;
}

bool ScriptTagging::searchText(Reader& reader, const ScriptContext& state, const String& text,
                               int instance, int& found, std::size_t& column) {
    const int start = reader.currentRowNumber();
    const int rows = reader.numLines();
    // An empty text still advances by one character, so a search always ends.
    const std::size_t step = text.empty() ? 1 : text.size();
    found = 0;
    if (instance > 0) {
        for (int row = start; row < rows; ++row) {
            reader.gotoLine(row);
            const String line = currentLine(reader, state);
            for (std::size_t p = line.find(text); p != String::npos;
                 p = line.find(text, p + step)) {
                if (++found == instance) {
                    column = p + text.size();
                    return true;
                }
            }
        }
    } else {
        for (int row = start; row >= 0 && row < rows; --row) {
            reader.gotoLine(row);
            const String line = currentLine(reader, state);
            for (std::size_t p = line.rfind(text); p != String::npos;
                 p = p == 0 ? String::npos : line.rfind(text, p - 1)) {
                if (++found == -static_cast<long long>(instance)) {
                    column = p + text.size();
                    return true;
                }
            }
        }
    }
    reader.gotoLine(start);
    return false;
}

bool ScriptTagging::gotoString(Reader& reader, ScriptContext& state, const String& statement,
                               int lineNumber, String& errors) {
    traceExecuting(reader.currentRowNumber(), currentLine(reader, state), statement, lineNumber);
    StringList args;
    if (!argumentsOf(statement, lineNumber, 2, 2, ".err.gotoStringNumOptions", args, errors))
        return false;
    String text;
    if (!delimitersOf(args[0], statement, lineNumber, text, errors)) return false;
    const int instance = roundedArgument(args[1]);
    if (instance == 0) {
        failLine(errors, lineNumber, statement, ".err.gotoStringInstanceZero", {});
        return false;
    }
    int found = 0;
    if (!searchText(reader, state, text, instance, found, foundColumn)) {
        failLine(errors, lineNumber, statement,
                 instance > 0 ? ".err.gotoStringNotFoundDown" : ".err.gotoStringNotFoundUp",
                 {text, numberText(found)});
        return false;
    }
    traceFinalLine(reader.currentRowNumber(), currentLine(reader, state));
    return true;
}

bool ScriptTagging::nextParameter(Reader&, ScriptContext& state, const String&, int, String&) {
    const int count = static_cast<int>(state.parameters.size());
    state.currentParameter = count == 0 ? 0 : (state.currentParameter + 1) % count;
    return true;
}

bool ScriptTagging::nextValue(Reader&, ScriptContext& state, const String&, int, String&) {
    if (state.parameters.empty()) return true;
    ScriptParameter& p = state.parameters[static_cast<std::size_t>(state.currentParameter)];
    p.valueIndex = p.valueIndex >= p.valueCount - 1 ? 0 : p.valueIndex + 1;
    return true;
}

}  // namespace MOSAQ::Portals
