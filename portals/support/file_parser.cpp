// Reads the messages a solver run left behind. The runner of the solver
// writes "<toolName>.messages" into the run folder for each design; this
// reader only passes its non-blank lines on, in order and unchanged, so the
// caller judges the level words itself.
#include "mosaq/support.h"

namespace MOSAQ::Support {

namespace {

bool isBlank(const String& line) {
    return line.find_first_not_of(" \t\r\n") == String::npos;
}

}  // namespace

StringList FileParser::getToolMessagesUsingConfigFile(const String&, const String& toolName,
                                                      const StringStringMap& substitutions,
                                                      StringStringMap&) {
    auto it = substitutions.find("destDir");
    const bool here = it == substitutions.end() || it->second.empty();
    FileReader reader((here ? String(".") : it->second) + "/" + toolName + ".messages", false);
    StringList messages;
    if (!reader.is_open()) return messages;
    String line;
    while (reader.getLine(line, '\n')) {
        if (!isBlank(line)) messages.push_back(line);
    }
    return messages;
}

}  // namespace MOSAQ::Support
