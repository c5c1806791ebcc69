// The script trace: with the host's "scriptverbose" setting on, a step by step
// account of every script of a tagged file goes to a text file beside its tag
// file, named after the tag file with ".script.out" for its extension. It is
// written anew for each tagged file and closed when the file is done; while it
// is closed, every trace call does nothing. Line numbers are 1-based.
#include "zeltra/tagging.h"

namespace MOSAQ::Portals {

namespace {

const char* const kStars = "***************************************************************";
const char* const kIndent = "          ";

}  // namespace

bool ScriptTagging::openTrace(const String& tagFile) {
    if (traceFile.is_open()) traceFile.close();
    tracePath.clear();
    if (!host || !isTrue(host->getSetting("scriptverbose", ""))) return false;
    tracePath = Support::File::parentFolder(tagFile) + "/" + Support::File::base(tagFile, false) +
                ".script.out";
    traceFile.clear();
    traceFile.open(tracePath, std::ios_base::out | std::ios_base::trunc, 0);
    return traceFile.is_open();
}

void ScriptTagging::closeTrace(bool announce, String& errors) {
    if (!traceFile.is_open()) return;
    traceFile.close();
    if (announce) addLine(errors, moduleText(".msg.processInfo"), tracePath);
}

void ScriptTagging::traceScriptHeader(const String& paramName, const String& firstLine) {
    if (!traceFile.is_open()) return;
    const long pad = (59 - static_cast<long>(paramName.size())) / 2;
    traceFile << kStars << '\n'
              << "**            Executing script for parameter(s):             **\n";
    if (pad >= 1) {
        const String blanks(static_cast<std::size_t>(pad), ' ');
        traceFile << "**" << blanks << paramName << blanks << "**\n";
    } else {
        traceFile << "**    " << paramName << '\n';
    }
    traceFile << kStars << '\n'
              << "******* Read line number 1 (after opening the file) as: *******\n"
              << kIndent << firstLine << '\n';
}

void ScriptTagging::traceExecuting(int row, const String& text, const String& statement,
                                   int lineNumber) {
    if (!traceFile.is_open()) return;
    traceFile << "******* Executing -> " << statement << " *******\n"
              << "        From script line # = " << numberText(lineNumber) << '\n'
              << "        Initial line # = " << numberText(row + 1.0) << '\n'
              << "        Initial line read as:\n"
              << kIndent << text << '\n';
}

void ScriptTagging::traceFinalLine(int row, const String& text) {
    if (!traceFile.is_open()) return;
    traceFile << "        Final line # = " << numberText(row + 1.0) << '\n'
              << "        Final line read as:\n"
              << kIndent << text << '\n';
}

void ScriptTagging::traceModifiedLine(int, const String& text) {
    if (!traceFile.is_open()) return;
    traceFile << "        Modified line:\n" << kIndent << text << '\n';
}

}  // namespace MOSAQ::Portals
