// The statements where a script touches values. On the input side a SET
// writes the current parameter's value into the current line (the change
// waits in changedLines); on the output side a GET reads a token of the
// current line, or one from each of a run of lines, into the current
// response. FREE is a delimited token, FIXED a token by columns, RELATIVE a
// token counted from the end of a text found first by GOTO_STRING.
//
// Invariants: the token engine is called without a file name and with the
// 1-based line number; each statement gathers the engine's messages in a
// buffer of its own and decides what reaches the caller; a failing statement
// reports ".err.couldNotExecuteLine" first and leaves changedLines as it was.
#include <algorithm>
#include <optional>

#include "zeltra/tagging.h"

namespace MOSAQ::Portals {

namespace {

using Reader = Support::FileBufferedReader;

int rounded(const String& text) { return ScriptTagging::roundedArgument(text); }

ScriptParameter& currentParameter(ScriptContext& state) {
    return state.parameters[static_cast<std::size_t>(state.currentParameter)];
}

}  // namespace

// Per statement: whether it reads a column, up to its end, whether it got a
// value yet, whether the end was met, and how many warnings it had.
struct ScriptTagging::ColumnRun {
    bool column = false;
    bool untilEnd = false;
    bool gotData = false;
    bool stop = false;
    bool warnedOnce = false;
    int warnings = 0;
};

// --- SET ---------------------------------------------------------------------

bool ScriptTagging::setToken(bool fixed, Reader& reader, ScriptContext& state,
                             const String& statement, int lineNumber, String& errors) {
    const int row = reader.currentRowNumber();
    traceExecuting(row, currentLine(reader, state), statement, lineNumber);
    StringList args;
    if (!argumentsOf(statement, lineNumber, 3, 3,
                     fixed ? ".err.setValueFixedNumOptions" : ".err.setValueFreeNumOptions", args,
                     errors))
        return false;
    const int first = rounded(args[0]);
    const int second = rounded(args[1]);
    String delimSet;
    if (!fixed) {
        if (first < 1) {
            failLine(errors, lineNumber, statement, ".err.setValueFreeSmallPos",
                     {trimmed(args[0])});
            return false;
        }
        if (!delimitersOf(args[1], statement, lineNumber, delimSet, errors)) return false;
    } else {
        if (first < 1) {
            failLine(errors, lineNumber, statement, ".err.setValueFixedSmallStartPos",
                     {join(args, ","), trimmed(args[0])});
            return false;
        }
        if (second < first) {
            failLine(errors, lineNumber, statement, ".err.setValueFixedSmallEndPos",
                     {join(args, ","), trimmed(args[0]), trimmed(args[1])});
            return false;
        }
    }
    const ScriptParameter& p = currentParameter(state);
    String local;
    const String text =
        context ? context->getDesignValue("", p.name, "", trimmed(args[2]), local) : String();
    // A value the host couldn't give fails the statement before the line is
    // touched, rather than writing an empty value.
    if (hasError(local)) {
        failLine(errors, lineNumber, statement, String(), {});
        addError(errors, local);
        return false;
    }
    // The value index counts the lines of the "Default" text; a text of this
    // format with fewer lines writes the empty value rather than guess.
    const StringList pieces = split(text, '\n', false);
    const auto index = static_cast<std::size_t>(p.valueIndex);
    const String v = index < pieces.size() ? pieces[index] : String();

    const String line = currentLine(reader, state);
    String newLine;
    bool ok;
    if (fixed) {
        int end = second;
        ok = replaceFixedToken(first, end, line, row + 1, String(), v, newLine, local);
    } else {
        ok = updateDelimToken(first, line, row + 1, String(), delimSet, v, newLine, local);
    }
    if (!ok) {
        failLine(errors, lineNumber, statement, String(), {});
        addError(errors, local);
        return false;
    }
    if (!local.empty()) addLine(errors, local);
    state.changedLines[row] = newLine;
    traceModifiedLine(row, newLine);
    return true;
}

bool ScriptTagging::setRelative(bool fixed, Reader& reader, ScriptContext& state,
                                const String& statement, int lineNumber, String& errors) {
    traceExecuting(reader.currentRowNumber(), currentLine(reader, state), statement, lineNumber);
    StringList args;
    if (!argumentsOf(statement, lineNumber, 5, 5,
                     fixed ? ".err.setRelativeValueFixedNumOptions"
                           : ".err.setRelativeValueFreeNumOptions",
                     args, errors))
        return false;
    if (rounded(args[2]) < 1) {
        failLine(errors, lineNumber, statement,
                 fixed ? ".err.setRelativeValueFixedSmallStartPos"
                       : ".err.setRelativeValueFreeSmallPos",
                 {trimmed(args[2])});
        return false;
    }
    if (fixed && rounded(args[3]) < rounded(args[2])) {
        failLine(errors, lineNumber, statement, ".err.setRelativeValueFixedBigStartPos",
                 {trimmed(args[3]), trimmed(args[2])});
        return false;
    }
    String local;
    const String find =
        "internal_goto_string (" + args[0] + ", " + numberText(rounded(args[1])) + ")";
    if (!gotoString(reader, state, find, lineNumber, local)) {
        failLine(errors, lineNumber, statement, String(), {});
        addError(errors, local);
        return false;
    }
    const int row = reader.currentRowNumber();
    const String line = currentLine(reader, state);
    const std::size_t cut = std::min(foundColumn, line.size());
    const String head = line.substr(0, cut);
    const auto before = state.changedLines.find(row);
    const std::optional<String> saved =
        before == state.changedLines.end() ? std::nullopt : std::optional<String>(before->second);
    state.changedLines[row] = line.substr(cut);

    // The arguments go on exactly as written, so a delimiter set without a
    // blank doesn't gain one.
    const String set = String(fixed ? "internal_set_value_fixed(" : "internal_set_value_free(") +
                       args[2] + "," + args[3] + "," + args[4] + ")";
    if (!setToken(fixed, reader, state, set, lineNumber, local)) {
        // Put the whole line back: inside a LOOP(EOL) the script goes on and
        // the file is written, and the tail alone must not reach it.
        if (saved) state.changedLines[row] = *saved;
        else state.changedLines.erase(row);
        failLine(errors, lineNumber, statement, String(), {});
        addError(errors, local);
        return false;
    }
    if (!local.empty()) addLine(errors, local);
    const String whole = head + state.changedLines[row];
    state.changedLines[row] = whole;
    traceModifiedLine(row, whole);
    return true;
}

bool ScriptTagging::setValueFree(Reader& r, ScriptContext& s, const String& st, int n, String& e) {
    return setToken(false, r, s, st, n, e);
}
bool ScriptTagging::setValueFixed(Reader& r, ScriptContext& s, const String& st, int n, String& e) {
    return setToken(true, r, s, st, n, e);
}
bool ScriptTagging::setRelativeFree(Reader& r, ScriptContext& s, const String& st, int n,
                                    String& e) {
    return setRelative(false, r, s, st, n, e);
}
bool ScriptTagging::setRelativeFixed(Reader& r, ScriptContext& s, const String& st, int n,
                                     String& e) {
    return setRelative(true, r, s, st, n, e);
}

// --- GET ---------------------------------------------------------------------

bool ScriptTagging::storeValue(bool extracted, const String& value, const String& local, int row,
                               ColumnRun& run, const ScriptContext& state, int lineNumber,
                               const String& statement, String& errors) {
    const ScriptParameter& p = state.parameters[static_cast<std::size_t>(state.currentParameter)];
    String reason = local;
    if (extracted && !run.column) {
        if (p.isNumeric && !isNumber(value)) {
            addLevelLine(reason, "ERROR", moduleText(".err.responseNotANumber"), {p.name, value});
            extracted = false;
        } else if (!local.empty()) {
            addLine(errors, local);
        }
    } else if (extracted && !local.empty()) {
        if (++run.warnings < 6) {
            addLine(errors, local);
        } else if (!run.warnedOnce) {
            addWarning(errors, moduleText(".warn.getColumnFoundEndEarly"));
            run.warnedOnce = true;
        }
    }
    if (extracted) {
        if (!run.column && p.isNumeric) numericResults[p.name].push_back(parseNumber(value));
        else textResults[p.name].push_back(value);
        run.gotData = true;
        return true;
    }
    if (run.column && run.untilEnd && run.gotData) {
        addNote(errors, moduleText(".msg.getColumnFoundEndFromError"), numberText(row));
        run.stop = true;
        return true;
    }
    failLine(errors, lineNumber, statement, String(), {});
    if (!reason.empty()) addError(errors, reason);
    return false;
}

bool ScriptTagging::getToken(bool fixed, Reader& reader, ScriptContext& state,
                             const String& statement, int lineNumber, String& errors) {
    const int row = reader.currentRowNumber();
    const String line = currentLine(reader, state);
    traceExecuting(row, line, statement, lineNumber);
    StringList args;
    if (!argumentsOf(statement, lineNumber, 2, 2,
                     fixed ? ".err.getValueFixedNumOptions" : ".err.getValueFreeNumOptions", args,
                     errors))
        return false;
    const int first = rounded(args[0]), second = rounded(args[1]);
    String local, value;
    bool ok;
    if (fixed) {
        if (first < 1) {
            failLine(errors, lineNumber, statement, ".err.getValueFixedSmallStartPos",
                     {join(args, ","), trimmed(args[0])});
            return false;
        }
        if (second < first) {
            failLine(errors, lineNumber, statement, ".err.getValueFixedBigStartPos",
                     {join(args, ","), trimmed(args[0]), trimmed(args[1])});
            return false;
        }
        ok = extractFixedToken(first, second, line, row + 1, String(), value, local);
    } else {
        if (first < 1) {
            failLine(errors, lineNumber, statement, ".err.getValueFreeSmallPos",
                     {trimmed(args[0])});
            return false;
        }
        String delimSet;
        if (!delimitersOf(args[1], statement, lineNumber, delimSet, errors)) return false;
        ok = extractDelimToken(first, line, row + 1, String(), delimSet, value, local);
    }
    ColumnRun single;
    return storeValue(ok, value, local, row + 1, single, state, lineNumber, statement, errors);
}

bool ScriptTagging::getRelative(bool fixed, Reader& reader, ScriptContext& state,
                                const String& statement, int lineNumber, String& errors) {
    traceExecuting(reader.currentRowNumber(), currentLine(reader, state), statement, lineNumber);
    StringList args;
    if (!argumentsOf(statement, lineNumber, 4, 4,
                     fixed ? ".err.getRelValueFixedNumOptions" : ".err.getRelValueFreeNumOptions",
                     args, errors))
        return false;
    if (rounded(args[2]) < 1) {
        failLine(errors, lineNumber, statement,
                 fixed ? ".err.getRelValueFixedSmallStartPos" : ".err.getRelValueFreeSmallPos",
                 {trimmed(args[2])});
        return false;
    }
    if (fixed && rounded(args[3]) < rounded(args[2])) {
        failLine(errors, lineNumber, statement, ".err.getRelValueFixedBigStartPos",
                 {trimmed(args[3]), trimmed(args[2])});
        return false;
    }
    String local;
    const String find =
        "internal_goto_string (" + args[0] + ", " + numberText(rounded(args[1])) + ")";
    bool ok = gotoString(reader, state, find, lineNumber, local);
    if (ok) {
        // The inner GET sees the tail as the current line for its one call.
        const int row = reader.currentRowNumber();
        const String line = currentLine(reader, state);
        state.changedLines[row] = line.substr(std::min(foundColumn, line.size()));
        const String get =
            String(fixed ? "internal_get_value_fixed(" : "internal_get_value_free(") + args[2] +
            "," + args[3] + ")";
        ok = getToken(fixed, reader, state, get, lineNumber, local);
        state.changedLines.erase(row);
    }
    if (!ok) {
        failLine(errors, lineNumber, statement, String(), {});
        addError(errors, local);
    }
    return ok;
}

bool ScriptTagging::getValueFree(Reader& r, ScriptContext& s, const String& st, int n, String& e) {
    return getToken(false, r, s, st, n, e);
}
bool ScriptTagging::getValueFixed(Reader& r, ScriptContext& s, const String& st, int n, String& e) {
    return getToken(true, r, s, st, n, e);
}
bool ScriptTagging::getRelativeFree(Reader& r, ScriptContext& s, const String& st, int n,
                                    String& e) {
    return getRelative(false, r, s, st, n, e);
}
bool ScriptTagging::getRelativeFixed(Reader& r, ScriptContext& s, const String& st, int n,
                                     String& e) {
    return getRelative(true, r, s, st, n, e);
}

// --- GET_COLUMN --------------------------------------------------------------

bool ScriptTagging::getColumn(bool fixed, Reader& reader, ScriptContext& state,
                              const String& statement, int lineNumber, String& errors) {
    traceExecuting(reader.currentRowNumber(), currentLine(reader, state), statement, lineNumber);
    StringList args;
    if (!argumentsOf(statement, lineNumber, 3, 4,
                     fixed ? ".err.getColumnFixedNumOptions" : ".err.getColumnFreeNumOptions",
                     args, errors))
        return false;
    const int first = rounded(args[0]);
    const int last = fixed ? rounded(args[1]) : 0;
    String delimSet;
    if (fixed && last < first) {
        failLine(errors, lineNumber, statement, ".err.getColumnFixedSmallEndCol",
                 {trimmed(args[1]), trimmed(args[0])});
        return false;
    }
    if (!fixed) {
        if (first < 1) {
            failLine(errors, lineNumber, statement, ".err.getColumnFreeSmallPos",
                     {trimmed(args[0])});
            return false;
        }
        if (!delimitersOf(args[2], statement, lineNumber, delimSet, errors)) return false;
    }
    const String kind = fixed ? "FIXED" : "FREE";
    const String linesArg = trimmed(args[fixed ? 2 : 1]);
    const bool hasEnd = args.size() == 4;
    const String endText = hasEnd ? args[3] : String();

    ColumnRun run;
    run.column = true;
    auto extractRow = [&](int row) {
        String local, value;
        const String line = reader.getLine(row);
        const bool ok =
            fixed ? extractFixedToken(first, last, line, row + 1, String(), value, local)
                  : extractDelimToken(first, line, row + 1, String(), delimSet, value, local);
        return storeValue(ok, value, local, row + 1, run, state, lineNumber, statement, errors);
    };
    if (linesArg == "EOC") {
        run.untilEnd = true;
        for (;;) {
            if (!extractRow(reader.currentRowNumber())) return false;
            if (run.stop) break;
            const int next = reader.currentRowNumber() + 1;
            if (!reader.gotoLine(next)) break;
            if (hasEnd && reader.getCurrentLine().find(endText) != String::npos) {
                addNote(errors, moduleText(".msg.getColumnFoundEndFromString"),
                        numberText(next + 1));
                break;
            }
        }
    } else {
        const int n = rounded(linesArg);
        if (n < 1) {
            failLine(errors, lineNumber, statement, ".err.getColumnSmallNumLines",
                     {kind, linesArg});
            return false;
        }
        const int start = reader.currentRowNumber();
        for (int k = 0; k < n; ++k) {
            if (!reader.gotoLine(start + k)) {
                failLine(errors, lineNumber, statement, ".err.getColumnFoundEnd", {kind});
                return false;
            }
            if (!extractRow(start + k)) return false;
        }
    }
    return finishColumn(state, lineNumber, statement, errors);
}

bool ScriptTagging::finishColumn(const ScriptContext& state, int lineNumber,
                                 const String& statement, String& errors) {
    const ScriptParameter& p = state.parameters[static_cast<std::size_t>(state.currentParameter)];
    auto it = textResults.find(p.name);
    if (it == textResults.end() || it->second.empty()) {
        failLine(errors, lineNumber, statement, ".err.getColumnNoData", {p.name});
        return false;
    }
    if (!p.isNumeric) return true;
    StringList& items = it->second;
    for (std::size_t k = 0; k < items.size(); ++k) {
        if (isNumber(items[k])) continue;
        const String text = formatList(moduleText(".err.responseNotANumber"), {p.name, items[k]}) +
                            " " +
                            formatList(moduleText(".err.getColumnProblemItem"),
                                       {numberText(double(k + 1))});
        failLine(errors, lineNumber, statement, String(), {});
        addLevelLine(errors, "ERROR", text, {});
        // One bad item fails the whole column: nothing of it is kept.
        textResults.erase(it);
        return false;
    }
    std::vector<double>& numbers = numericResults[p.name];
    for (const String& item : items) numbers.push_back(parseNumber(item));
    items.clear();
    return true;
}

bool ScriptTagging::getColumnFree(Reader& r, ScriptContext& s, const String& st, int n, String& e) {
    return getColumn(false, r, s, st, n, e);
}
bool ScriptTagging::getColumnFixed(Reader& r, ScriptContext& s, const String& st, int n,
                                   String& e) {
    return getColumn(true, r, s, st, n, e);
}

}  // namespace MOSAQ::Portals
