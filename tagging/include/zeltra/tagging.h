// The tagging modules: they write and read tag definition files and, for each
// design, put the design's values into input files and take response values
// out of output files. TaggingImpl is their common base; the portal holds one
// module of each kind and asks them in the order marking, XML, scripting.
//
// A read of a tag definition file answers a negative number when the file
// isn't the module's, so the portal can ask the next one; 0 means it was read.
#pragma once

#include <map>
#include <vector>

#include <pugixml.hpp>

#include "zeltra/helper_base.h"

namespace MOSAQ::Portals {

class MOSAQ_EXPORT TaggingImpl : public HelperBase {
public:
    explicit TaggingImpl(IPortalHost* host) : HelperBase(host) {}
    ~TaggingImpl() override = default;

    // Writes a tag definition file for the tags of an input (output) file.
    virtual bool writeInputTagging(const String& fileName, const std::list<TagData>& tags,
                                   const StringStringMap& data, StringStringMap& outputs,
                                   String& errors);
    virtual bool writeOutputTagging(const String& fileName, const std::list<TagData>& tags,
                                    const StringStringMap& data, StringStringMap& outputs,
                                    String& errors);
    // Reads a tag definition file; negative when it isn't this module's.
    virtual int readInputTagging(const String& tagFile, const StringStringMap& data,
                                 std::list<TagData>& tags, StringStringMap& outputs,
                                 String& errors);
    virtual int readOutputTagging(const String& tagFile, const StringStringMap& data,
                                  std::list<TagData>& tags, StringStringMap& outputs,
                                  String& errors);
    // Puts the design's values into the input files this module has tag files
    // for; true when there was nothing to do.
    virtual bool tagInputs(const StringStringMap& data, void* opaque, String& errors);
    // Takes the responses out of the output files this module has tag files for.
    virtual bool tagOutputs(const StringStringMap& data, void* opaque, String& errors);
    virtual void finishTagging(void* opaque1, void* opaque2);
    // The module's attributes on a tag definition document, on one tag's
    // node, and back from a node into a tag.
    virtual void writeTagFileAttributes(pugi::xml_document& document, const StringStringMap& data);
    virtual void writeTagAttributes(pugi::xml_node& node, const TagData& tag) = 0;
    virtual void readTagAttributes(pugi::xml_node& node, TagData& tag) = 0;

    // --- the token engine -------------------------------------------------
    // Lines are byte text; columns and token ordinals count from 1. `row`
    // and `fileName` serve the messages only: with a file name, the message
    // names the file. A false result leaves `value` and `newLine` unusable.

    // Delimited tokens are the maximal runs of characters not in delimSet; an
    // empty set makes a non-empty line one token.
    static int countTokens(const String& line, const String& delimSet);
    static StringList splitTokens(const String& line, const String& delimSet);
    // Appends the characters of a written delimiter specification (\t tab,
    // \s blank, \, comma, \\ backslash pair) to delimSet.
    static bool parseDelimiters(const String& spec, String& delimSet, String& errors);
    // Columns of fixed-width token `col` under a width specification such as
    // "8.8.*" or "10"; start and end come in as 1 and 0.
    static bool locateFixedToken(const String& line, const String& widths, int col, int& start,
                                 int& end, String& errors);
    static bool extractDelimToken(int col, const String& line, int row, const String& fileName,
                                  const String& delimSet, String& value, String& errors);
    static bool extractFixedToken(int start, int end, const String& line, int row,
                                  const String& fileName, String& value, String& errors);
    // Swaps the characters of one token, keeping every delimiter in place.
    static bool updateDelimToken(int col, const String& line, int row, const String& fileName,
                                 const String& delimSet, const String& value, String& newLine,
                                 String& errors);
    // Writes a value into columns start..end, fitted to the field; the line
    // keeps its length. An end past the line is clipped in the caller's end.
    static bool replaceFixedToken(int start, int& end, const String& line, int row,
                                  const String& fileName, const String& value, String& newLine,
                                  String& errors);

    // Number of a tag property ("row", "col"): read as a number, truncated.
    static int wholeNumber(const String& text);

protected:
    // A message of the shared "tagging" table, and of the module's own table.
    static String taggingText(const String& id);
    String moduleText(const String& id);
    // Appends a line at a level, filled with every argument, none dropped.
    static void addLevelLine(String& errors, const String& level, const String& pattern,
                             const StringList& args);
    // Whether MQT_PRESERVE_TAGGED_FILE_STAGES asks for the ".orig" and
    // ".after<Module>" copies of a tagged input; and the byte copy they use.
    static bool preserveStages();
    static bool copyFile(const String& from, const String& to);

    // Tags of a module tag file through the cache (see HelperBase::cachedTags).
    bool getInputTags(const String& tagFile, const String& fileName, std::list<TagData>& tags);
    bool getOutputTags(const String& tagFile, const String& fileName, std::list<TagData>& tags);
};

// Tags by row and column marks in plain text files. Tag definition files
// begin "M_in_" or "M_out_" and have "marking" at the start of line two.
class MOSAQ_EXPORT MarkTagging : public TaggingImpl {
public:
    explicit MarkTagging(IPortalHost* host) : TaggingImpl(host) {}
    String getHelperName() override { return "Marking"; }

    bool writeInputTagging(const String& fileName, const std::list<TagData>& tags,
                           const StringStringMap& data, StringStringMap& outputs,
                           String& errors) override;
    bool writeOutputTagging(const String& fileName, const std::list<TagData>& tags,
                            const StringStringMap& data, StringStringMap& outputs,
                            String& errors) override;
    int readInputTagging(const String& tagFile, const StringStringMap& data,
                         std::list<TagData>& tags, StringStringMap& outputs,
                         String& errors) override;
    int readOutputTagging(const String& tagFile, const StringStringMap& data,
                          std::list<TagData>& tags, StringStringMap& outputs,
                          String& errors) override;
    bool tagInputs(const StringStringMap& data, void* opaque, String& errors) override;
    bool tagOutputs(const StringStringMap& data, void* opaque, String& errors) override;

    void writeTagFileAttributes(pugi::xml_document& document, const StringStringMap& data) override;
    void writeTagAttributes(pugi::xml_node& node, const TagData& tag) override;
    void readTagAttributes(pugi::xml_node& node, TagData& tag) override;

    // The default delimiter and width specifications of a tag file.
    static const char* const kDefaultDelims;
    static const char* const kDefaultWidths;

    // Tags of one file in the order they are applied: by "row" text, then
    // "col" text, byte-wise and stable; then cut into rows by row number.
    static void sortTags(std::list<TagData>& tags);
    static std::map<int, std::vector<TagData>> rowMap(const std::list<TagData>& sortedTags);
    // One tag line of a tag file into a tag; false unless it has 7 fields.
    static bool parseTagLine(const String& line, TagData& tag);

private:
    bool writeTagFile(const String& fileName, const std::list<TagData>& tags,
                      const StringStringMap& data, StringStringMap& outputs, String& errors,
                      bool input);
    int readTagFile(const String& tagFile, const StringStringMap& data, std::list<TagData>& tags,
                    StringStringMap& outputs, String& errors, bool input);
    // Rewrites one input file; false when the file was given up.
    bool tagInputFile(const String& path, const String& tagFile, const StringStringMap& data,
                      String& errors);
    // Applies the tags of one row to a line; false when a token step failed.
    bool tagLine(String& line, int row, const std::vector<TagData>& rowTags, const String& path,
                 const String& tagFile, String& errors);
    void reportOutputTag(const TagData& tag, const String& line, int row, const String& path,
                         const StringStringMap& data, String& errors);
};

// What an XML path resolves to: an element or text node, or an attribute.
// The attribute, where present, is what is read and written; an empty target
// (neither) means the path found nothing.
struct XmlTarget {
    pugi::xml_node node;
    pugi::xml_attribute attribute;
    bool empty() const { return !node && !attribute; }
};

// Tags by XML paths in XML solver files. Tag definition files are XML
// documents named "X_in_" or "X_out_" + analysis + "_" + the tagged file's
// base name, with the root element "TagDefinition" and one "tag" element per
// tag. A tag's "xpath" leads from the document to an element and its "xid"
// from there to the text node or attribute that holds the value; the path
// language is described in docs/xml-tags.md.
class MOSAQ_EXPORT XmlTagging : public TaggingImpl {
public:
    explicit XmlTagging(IPortalHost* host) : TaggingImpl(host) {}
    String getHelperName() override { return "Xml"; }

    bool writeInputTagging(const String& fileName, const std::list<TagData>& tags,
                           const StringStringMap& data, StringStringMap& outputs,
                           String& errors) override;
    bool writeOutputTagging(const String& fileName, const std::list<TagData>& tags,
                            const StringStringMap& data, StringStringMap& outputs,
                            String& errors) override;
    // A file that doesn't load replaces the whole errors text with the
    // parser's reason and a plain line naming the file, and gives -1 so the
    // next module is asked; so does a document whose root isn't TagDefinition.
    int readInputTagging(const String& tagFile, const StringStringMap& data,
                         std::list<TagData>& tags, StringStringMap& outputs,
                         String& errors) override;
    int readOutputTagging(const String& tagFile, const StringStringMap& data,
                          std::list<TagData>& tags, StringStringMap& outputs,
                          String& errors) override;
    bool tagInputs(const StringStringMap& data, void* opaque, String& errors) override;
    bool tagOutputs(const StringStringMap& data, void* opaque, String& errors) override;

    // Sets "xpath" then "xid" on a tag's node; reads them back, absent as empty.
    void writeTagAttributes(pugi::xml_node& node, const TagData& tag) override;
    void readTagAttributes(pugi::xml_node& node, TagData& tag) override;

    // Writes the design's values into one XML input and saves it over the
    // file; a document that doesn't load is left exactly as it was. True when
    // the errors text holds no error afterwards; false without a context.
    virtual bool tagInputFile(const String& path, const std::list<TagData>& tags,
                              const StringStringMap& data, String& errors);
    // Reads one value per tag out of one XML output and reports it.
    virtual bool tagOutputFile(const String& path, const std::list<TagData>& tags,
                               const StringStringMap& data, String& errors);

    // --- the path language ------------------------------------------------
    // Segments of a path split on "/" outside brackets; a leading "/" gives
    // no empty first segment, a trailing one an empty last segment.
    static StringList splitPath(const String& path);
    // Follows the segments down from a node (the document for an "xpath").
    static XmlTarget resolvePath(pugi::xml_node node, const StringList& segments);
    // Whether a node meets a condition: "./path" (the path finds something),
    // "#text=v" (its text is v), "@a=v" or "a=v" (attribute a is v).
    static bool testCondition(pugi::xml_node node, const String& condition);

    // The file calls of loading and saving, in one table so tests can make
    // them fail. read fills bytes with a whole file and gives 0, or an errno
    // value; create opens a file anew for writing and gives a descriptor, or
    // -errno; write and close have the POSIX contract.
    struct FileOps {
        int (*read)(const String& path, String& bytes);
        int (*create)(const String& path);
        long (*write)(int fd, const void* data, unsigned long size);
        int (*close)(int fd);
    };
    static FileOps& fileOps();
    static const FileOps& defaultFileOps();

private:
    bool writeXmlTagFile(const String& fileName, const std::list<TagData>& tags,
                         const StringStringMap& data, StringStringMap& outputs, String& errors,
                         bool input);
    int readXmlTagFile(const String& tagFile, std::list<TagData>& tags, String& errors);
    // Tags of a run's tag file; an unreadable one is reported in errors.
    bool runTags(const String& tagFile, const String& fileName, bool input,
                 std::list<TagData>& tags, String& errors);
};

// One name of a script's parameter list and its state while the script runs.
struct ScriptParameter {
    String name;
    int valueIndex = 0;      // which value of the parameter the next SET takes
    int valueCount = 0;      // lines of its "Default" value text; input side only
    bool isNumeric = false;  // output side only: the response's data type is "Numeric"
};

// The state of one running script. changedLines holds, by reader row, the new
// text of every line a SET has changed; it is shared by all scripts of one
// file, so a later script sees an earlier one's changes.
struct ScriptContext {
    StringList lines;         // the lines being run; a LOOP swaps in its body
    int firstLineNumber = 1;  // script line number of lines[0]
    std::vector<ScriptParameter> parameters;
    int currentParameter = 0;
    std::map<int, String> changedLines;
    String tagFilePath;       // for messages
    bool isInput = true;
};

// Tags by small scripts that move a cursor over the lines of a file, find
// lines by their text and read or write tokens there. Tag definition files
// begin "S_in_" or "S_out_" and have "scripting" at the start of line two.
// An input file is rewritten only after all its scripts ran; a failing input
// script leaves the file exactly as it was.
class MOSAQ_EXPORT ScriptTagging : public TaggingImpl {
public:
    explicit ScriptTagging(IPortalHost* host) : TaggingImpl(host) {}
    String getHelperName() override { return "Scripting"; }

    bool writeInputTagging(const String& fileName, const std::list<TagData>& tags,
                           const StringStringMap& data, StringStringMap& outputs,
                           String& errors) override;
    bool writeOutputTagging(const String& fileName, const std::list<TagData>& tags,
                            const StringStringMap& data, StringStringMap& outputs,
                            String& errors) override;
    int readInputTagging(const String& tagFile, const StringStringMap& data,
                         std::list<TagData>& tags, StringStringMap& outputs,
                         String& errors) override;
    int readOutputTagging(const String& tagFile, const StringStringMap& data,
                          std::list<TagData>& tags, StringStringMap& outputs,
                          String& errors) override;
    bool tagInputs(const StringStringMap& data, void* opaque, String& errors) override;
    bool tagOutputs(const StringStringMap& data, void* opaque, String& errors) override;

    // The script travels as a CDATA child of the tag's node.
    void writeTagAttributes(pugi::xml_node& node, const TagData& tag) override;
    void readTagAttributes(pugi::xml_node& node, TagData& tag) override;

    // The arguments of a statement: the text between its first "(" and last
    // ")", split on commas that aren't escaped ("\,"), untrimmed; escaped
    // commas stay escaped. False, with the reason in errors, when the
    // statement has no "(", no ")" or nothing between them.
    bool parseArguments(const String& statement, StringList& args, String& errors);
    // Expands %name% references from the end of the line: "names" stays,
    // "Param_Name" is the current parameter, any other name is a design value;
    // a name without a value stays and warns.
    void expandVariables(String& line, int lineNumber, const ScriptContext& state,
                         String& errors);
    // Runs the state's lines from firstLineNumber on; false as soon as a
    // statement fails, and nothing later runs.
    bool executeLines(Support::FileBufferedReader& reader, ScriptContext& state,
                      String& errors);
    // The current text of the cursor's line: its changed text, else the file's.
    static String currentLine(const Support::FileBufferedReader& reader,
                              const ScriptContext& state);

    // A numeric script argument: read as a number, rounded half away from
    // zero, clamped to the range of int; a text that isn't a number is 0.
    static int roundedArgument(const String& text);

    // A statement: the reader, the context, the statement as expanded, its
    // script line number and the errors; false when it failed.
    using Statement = bool (ScriptTagging::*)(Support::FileBufferedReader&, ScriptContext&,
                                              const String&, int, String&);

private:
    bool writeScriptFile(const String& fileName, const std::list<TagData>& tags,
                         const StringStringMap& data, StringStringMap& outputs, String& errors,
                         bool input);
    int readScriptFile(const String& tagFile, const StringStringMap& data,
                       std::list<TagData>& tags, String& errors, bool input);
    bool tagInputFile(const String& path, const String& tagFile, String& errors);
    bool tagOutputFile(const String& path, const String& tagFile, const StringStringMap& data,
                       String& errors);
    void reportResults(const StringStringMap& data);

    // Statement helpers: "couldNotExecuteLine" and then the reason.
    void failLine(String& errors, int lineNumber, const String& statement, const String& key,
                  const StringList& args);
    // The arguments of a statement, which must number `least` to `most`;
    // otherwise the line fails with `countKey`, which is given the count.
    bool argumentsOf(const String& statement, int lineNumber, std::size_t least,
                     std::size_t most, const char* countKey, StringList& args, String& errors);
    // The characters a delimiter (or search text) argument spells; otherwise
    // the line fails with the reason.
    bool delimitersOf(const String& arg, const String& statement, int lineNumber, String& set,
                      String& errors);
    bool runLoop(Support::FileBufferedReader& reader, ScriptContext& state, const String& first,
                 const StringList& lines, std::size_t& index, int& lineNumber, String& errors);
    bool searchText(Support::FileBufferedReader& reader, const ScriptContext& state,
                    const String& text, int instance, int& found, std::size_t& column);

    // The statements of the interpreter.
    bool loopStatement(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool moveUp(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool moveDown(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool gotoLine(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool gotoString(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool gotoTop(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool gotoEnd(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool nextParameter(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool nextValue(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    // The value statements (input side: SET, output side: GET).
    bool setValueFree(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool setValueFixed(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool setRelativeFree(Support::FileBufferedReader&, ScriptContext&, const String&, int,
                         String&);
    bool setRelativeFixed(Support::FileBufferedReader&, ScriptContext&, const String&, int,
                          String&);
    bool getValueFree(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool getValueFixed(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool getRelativeFree(Support::FileBufferedReader&, ScriptContext&, const String&, int,
                         String&);
    bool getRelativeFixed(Support::FileBufferedReader&, ScriptContext&, const String&, int,
                          String&);
    bool getColumnFree(Support::FileBufferedReader&, ScriptContext&, const String&, int, String&);
    bool getColumnFixed(Support::FileBufferedReader&, ScriptContext&, const String&, int,
                        String&);
    // The shared bodies of the FREE and FIXED forms.
    struct ColumnRun;
    bool setToken(bool fixed, Support::FileBufferedReader&, ScriptContext&, const String&, int,
                  String&);
    bool setRelative(bool fixed, Support::FileBufferedReader&, ScriptContext&, const String&, int,
                     String&);
    bool getToken(bool fixed, Support::FileBufferedReader&, ScriptContext&, const String&, int,
                  String&);
    bool getRelative(bool fixed, Support::FileBufferedReader&, ScriptContext&, const String&, int,
                     String&);
    bool getColumn(bool fixed, Support::FileBufferedReader&, ScriptContext&, const String&, int,
                   String&);
    bool storeValue(bool extracted, const String& value, const String& local, int row,
                    ColumnRun& run, const ScriptContext& state, int lineNumber,
                    const String& statement, String& errors);
    bool finishColumn(const ScriptContext& state, int lineNumber, const String& statement,
                      String& errors);

    // The trace beside the tag file; every call is a no-op while it is closed.
    bool openTrace(const String& tagFile);
    void closeTrace(bool announce, String& errors);
    void traceScriptHeader(const String& paramName, const String& firstLine);
    void traceExecuting(int row, const String& text, const String& statement, int lineNumber);
    void traceFinalLine(int row, const String& text);
    void traceModifiedLine(int row, const String& text);

    std::map<String, std::vector<double>> numericResults;
    std::map<String, StringList> textResults;
    Support::FileWriter traceFile;
    String tracePath;
    // Column behind the occurrence the last GOTO_STRING stopped at.
    std::size_t foundColumn = 0;
};

}  // namespace MOSAQ::Portals
