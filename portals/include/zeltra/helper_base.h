// HelperBase: what the portal and every tagging module share. It builds
// message texts with numbered placeholders, appends lines to the errors string
// an operation carries, reaches the host (a log line shown only while logging
// is on, a line always shown, a response report), keeps the log and cleanup
// switches, and caches parsed tag files by their base name.
//
// The string helpers are static members so every class of the chain uses them
// unqualified.
#pragma once

#include <functional>
#include <list>
#include <map>

#include "zeltra/interfaces.h"

namespace MOSAQ::Portals {

// Message levels of IPortalHost::logMessage.
enum MessageLevel : int {
    kLevelError = 2,
    kLevelWarning = 4,
    kLevelNote = 8,
    kLevelOutput = 16,
};

class MOSAQ_EXPORT HelperBase {
public:
    // The context is looked up on the host with the type word "Portal"; it is
    // kept only if its own type word is exactly "Portal".
    explicit HelperBase(IPortalHost* host);
    virtual ~HelperBase() = default;
    HelperBase(const HelperBase&) = delete;
    HelperBase& operator=(const HelperBase&) = delete;

    // The name that environment switches are built from (MQT_<NAME>_LOG...).
    virtual String getHelperName() = 0;

    // --- text building -------------------------------------------------
    // Fills %1..%9 in the order of their numbers with the arguments in order.
    // The two- and three-argument forms drop empty arguments first; numbers
    // become text with "%g".
    static String format(const String& pattern, const String& a1);
    static String format(const String& pattern, const String& a1, const String& a2);
    static String format(const String& pattern, const String& a1, const String& a2,
                         const String& a3);
    static String format(const String& pattern, const String& a1, const String& a2,
                         const String& a3, const String& a4, const String& a5,
                         const String& a6, const String& a7, const String& a8,
                         const String& a9);
    static String format(const String& pattern, int a1);
    static String format(const String& pattern, int a1, int a2);
    static String format(const String& pattern, int a1, int a2, int a3);
    static String format(const String& pattern, double a1);
    static String format(const String& pattern, double a1, double a2);
    static String format(const String& pattern, double a1, double a2, double a3);
    // Fills with exactly the given arguments, none dropped.
    static String formatList(const String& pattern, const StringList& args);
    // "%g" of a number.
    static String numberText(double value);

    // The text beginning with "<LEVEL>: ", other level prefixes inside it set
    // to the same level.
    static String normalizeLevel(const String& text, const String& level);

    // --- the errors string ------------------------------------------------
    static void addError(String& errors, const String& pattern, const String& a1 = String(),
                         const String& a2 = String(), const String& a3 = String());
    static void addWarning(String& errors, const String& pattern, const String& a1 = String(),
                           const String& a2 = String(), const String& a3 = String());
    static void addNote(String& errors, const String& pattern, const String& a1 = String(),
                        const String& a2 = String(), const String& a3 = String());
    static void addLine(String& errors, const String& text);
    static void addLine(String& errors, const String& pattern, const String& a1);
    static void addLine(String& errors, const String& pattern, const String& a1,
                        const String& a2);
    static void addLine(String& errors, const String& pattern, const String& a1,
                        const String& a2, const String& a3);
    static void addLine(String& errors, const String& pattern, int a1);
    static void addLine(String& errors, const String& pattern, int a1, int a2);
    static void addLine(String& errors, const String& pattern, int a1, int a2, int a3);
    static void addLine(String& errors, const String& pattern, double a1);
    static void addLine(String& errors, const String& pattern, double a1, double a2);
    static void addLine(String& errors, const String& pattern, double a1, double a2, double a3);
    // Whether a text reports a failure: it holds "ERROR" or "Exception caught".
    static bool hasError(const String& text);

    // --- to the host ----------------------------------------------------------
    // Sends a line while logging is on; the result says whether it is on. An
    // empty text sends nothing and serves as the query.
    bool logMessage(const String& text, const StringStringMap& data, int level);
    bool logMessage(const String& text, int level);
    // Logs the last `lines` lines of a text at note level.
    bool logTail(const String& text, const StringStringMap& data, int lines);
    // Always shown, given a host and a text.
    void showMessage(const String& text, const StringStringMap& data, int level);
    // Shown with "Testing: " in front when MQA_TESTING is on; says whether it is.
    bool testMessage(const String& text, const StringStringMap& data, int level);
    // Whether MQA_TESTING is on (read once per process).
    static bool testingOn();
    // Tells the host that the response `name` failed, with a reason.
    void reportErrorInCall(const String& name, const StringStringMap& data, const String& text);
    // Gives the host the values of a response; no values at all is a failure.
    void reportValues(const String& name, const StringStringMap& data,
                      const ResponseValues& values);

    // --- switches -------------------------------------------------------------
    // Whether working files are to be removed (MQT_<NAME>_CLEANUP), asked once.
    bool shouldCleanup();

    // --- string helpers -------------------------------------------------------
    static bool isTrue(const String& text);
    static bool isFalse(const String& text);
    // Reads a number written with the decimal sign `separator`, or the user's
    // own when it is 0; a text that doesn't start with a number gives 0.
    static double parseNumber(const String& text, char separator = 0);
    // Whether the same reading takes a number with only white space behind it.
    static bool isNumber(const String& text, char separator = 0);
    static String& trim(String& text);
    static String trimmed(String text);
    static StringList split(const String& text, char separator, bool trimEach = false);
    static String join(const StringList& list, const String& separator);
    static String& replaceAll(String& text, const String& from, const String& to);
    static String section(const String& text, const String& separator, int first,
                          int count = 0);
    static String toUpper(String text);
    static String toLower(String text);
    // A file list and its parallel tag file list from a data map: split at
    // newlines, each path trimmed, the tag list padded with empty entries.
    static void splitFileLists(const StringStringMap& data, const String& filesKey,
                               const String& tagsKey, StringList& files, StringList& tagFiles);
    // The value of a key of a data map; absent reads as empty.
    static String value(const StringStringMap& data, const String& key);
    // The value of the first property with this name (and this kind, when given).
    static String property(const std::list<PropertyItem>& properties, const String& name);
    static String property(const std::list<PropertyItem>& properties, const String& name,
                           const String& kind);
    // The user's decimal sign, read once per process.
    static char localeDecimalSign();

protected:
    // The reader behind a tag-cache lookup: fills tags from a tag file, with a
    // data map, an outputs map and an errors string of its own; 0 when read.
    using TagReader = std::function<int(const String& tagFile, const StringStringMap& data,
                                        std::list<TagData>& tags, StringStringMap& outputs,
                                        String& errors)>;
    // Tags of a tag file through the cache, keyed by the tag file's base name.
    // A miss calls `read` with a fresh map holding only fileKey = fileName and
    // stores the result when the read gave 0. True when tags is not empty.
    bool cachedTags(const String& tagFile, const String& fileKey, const String& fileName,
                    std::list<TagData>& tags, const TagReader& read);

    String envName(const String& suffix);   // "MQT_" + NAME + "_" + suffix, upper case
    static String environment(const String& name);  // empty when unset
    static bool environmentSet(const String& name);

    IPortalHost* host;
    IPortalContext* context;
    int logState = -2;
    int cleanupState = -1;
    std::map<String, std::list<TagData>> tagCache;
};

}  // namespace MOSAQ::Portals
