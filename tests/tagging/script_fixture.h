// Script tags played through the loaded plug-in and the fake host: a test
// gives the scripts and the tagged file's text, the fixture writes the tag
// definition file as a study keeps it and runs one design's inputs or outputs
// through the portal. Expected messages are built from the string table, so a
// test states the key and its arguments, not the wording.
#pragma once

#include <gtest/gtest.h>

#include "loaded_portal.h"
#include "mosaq/support.h"

namespace scripttest {

using MOSAQ::String;
using MOSAQ::StringList;

// A message line as the module writes it: the table text of a "Scripting"
// (or "tagging") key at a level, its placeholders filled.
String message(const char* level, const String& key, const StringList& args,
               const char* table = "Scripting");

// The line that opens the report of a failing statement: its script line
// number and its text.
String failed(int line, const String& statement);

// A row of a table of failing statements: the statement and the message
// that must follow its ".err.couldNotExecuteLine".
struct StatementError {
    const char* statement;
    const char* key;
    StringList args;
    const char* table = "Scripting";
    String expected() const { return message("ERROR", key, args, table); }
};

// The text of a script tag definition file holding the scripts, in order.
String scriptFile(const StringList& scripts, const String& taggedName = "deck.inp");

struct Outcome {
    bool ok = false;
    String errors;
    String file;  // the tagged file's text afterwards
};

class ScriptRun : public LoadedPortal {
protected:
    // Runs processInputs on "deck.inp" holding `deck`, tagged by the scripts.
    Outcome runInput(const String& deck, const StringList& scripts);
    // Runs processOutputs on "out.txt" holding `output`, read by the scripts.
    Outcome runOutput(const String& output, const StringList& scripts);
    // Declares responses numeric for the analysis "A1".
    void numeric(const StringList& names);
    // The numbers (or texts) reported for a response; fails the test if none.
    std::vector<double> numbers(const String& name);
    StringList texts(const String& name);

    String inputTag() const { return study.file("S_in_A1_deck.inp"); }
    String outputTag() const { return study.file("S_out_A1_out.txt"); }
};

}  // namespace scripttest
