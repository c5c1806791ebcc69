// The shared fixture of the script tagging tests.
#include "script_fixture.h"

#include "zeltra/helper_base.h"

namespace scripttest {

using MOSAQ::Portals::HelperBase;

String message(const char* level, const String& key, const StringList& args, const char* table) {
    const String text = MOSAQ::Support::StringTable::lookup(table, ".Portal" + key);
    return HelperBase::formatList(level ? HelperBase::normalizeLevel(text, level) : text, args);
}

String failed(int line, const String& statement) {
    return message("ERROR", ".err.couldNotExecuteLine", {std::to_string(line), statement});
}

String scriptFile(const StringList& scripts, const String& taggedName) {
    String text = "$ File type, version\nscripting, 1\n$ Tag definition file: " + taggedName +
                  "\nSCRIPTING\n$! Number of tags: " + std::to_string(scripts.size()) + "\n";
    for (const String& s : scripts) text += "$! Start tag script\n" + s + "\n$! End tag script\n\n";
    return text;
}

Outcome ScriptRun::runInput(const String& deck, const StringList& scripts) {
    const String path = run.write("deck.inp", deck);
    study.write("S_in_A1_deck.inp", scriptFile(scripts));
    Outcome o;
    o.ok = portal->processInputs({{"analysisName", "A1"},
                                  {"inputFilepaths", path},
                                  {"inputTagFilepaths", inputTag()}},
                                 nullptr, o.errors);
    o.file = fakehost::readFile(path);
    return o;
}

Outcome ScriptRun::runOutput(const String& output, const StringList& scripts) {
    const String path = run.write("out.txt", output);
    study.write("S_out_A1_out.txt", scriptFile(scripts, "out.txt"));
    Outcome o;
    o.ok = portal->processOutputs({{"analysisName", "A1"},
                                   {"evalId", "3"},
                                   {"outputFilepaths", path},
                                   {"outputTagFilepaths", outputTag()}},
                                  nullptr, o.errors);
    o.file = fakehost::readFile(path);
    return o;
}

void ScriptRun::numeric(const StringList& names) {
    for (const String& n : names)
        host.context.analysisProperties[{"A1", "responseDataType#" + n}] = {
            {"responseDataType", "Numeric"}};
}

std::vector<double> ScriptRun::numbers(const String& name) {
    const auto* r = host.context.response(name);
    EXPECT_NE(r, nullptr) << name << "\n" << host.transcript();
    if (!r) return {};
    EXPECT_FALSE(r->failed()) << name;
    return r->values.numbers;
}

StringList ScriptRun::texts(const String& name) {
    const auto* r = host.context.response(name);
    EXPECT_NE(r, nullptr) << name;
    if (!r) return {};
    EXPECT_FALSE(r->failed()) << name;
    return r->values.strings;
}

}  // namespace scripttest
