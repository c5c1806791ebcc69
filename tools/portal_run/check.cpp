// Each tag is checked where a run would use it: mark tags against the lines
// of the template input (or sample output), XML tags against the document,
// portal tags against the portal's own listing of a sample output. Places
// are remembered so that two parameters written into the same characters,
// or one response read twice, are found across files.
#include "check.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <set>
#include <sstream>

#include "designs.h"
#include "tag_survey.h"
#include "zeltra/tagging.h"

namespace portalrun {

namespace fs = std::filesystem;
using MOSAQ::Portals::HelperBase;
using MOSAQ::Portals::ItemGroup;
using MOSAQ::Portals::TaggingImpl;
using MOSAQ::Portals::XmlTagging;

namespace {

std::string shown(const std::string& path) {
    std::error_code ec;
    const fs::path rel = fs::path(path).lexically_proximate(fs::current_path(ec));
    return ec || rel.empty() ? path : rel.string();
}

std::string at(const std::string& path, int line) {
    return line > 0 ? shown(path) + ":" + std::to_string(line) : shown(path);
}

std::string firstLine(const std::string& text) {
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);)
        if (l.find_first_not_of(" \t\r") != std::string::npos) return l;
    return {};
}

std::vector<std::string> names(const std::string& list) {
    std::vector<std::string> out;
    std::stringstream in(list);
    for (std::string n; std::getline(in, n, ',');) {
        const auto b = n.find_first_not_of(" \t");
        if (b != std::string::npos) out.push_back(n.substr(b, n.find_last_not_of(" \t") - b + 1));
    }
    return out;
}

std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diag = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diag + (a[i - 1] != b[j - 1])});
            diag = up;
        }
    }
    return row[b.size()];
}

// Characters start..end (1-based, inclusive) of a row that a tag writes or reads.
struct Place {
    std::string file;
    int row = 0, start = 0, end = 0;
    std::string name;
    std::string where;
};

class Checker {
public:
    Checker(MOSAQ::Portals::IPortal& portal, const Study& study, const CheckOptions& options)
        : portal_(portal), study_(study), options_(options) {}

    std::vector<Finding> run();
    std::vector<Finding> runOne(const SurveyedTagFile& f) {
        checkFile(f);
        return std::move(out_);
    }

private:
    void error(const std::string& where, const std::string& text) { out_.push_back({true, where, text}); }
    void warn(const std::string& where, const std::string& text) { out_.push_back({false, where, text}); }

    bool fileUsable(const SurveyedTagFile& f);
    void checkFile(const SurveyedTagFile& f) {
        if (!fileUsable(f)) return;
        std::size_t i = 0;
        for (const TagData& tag : f.tags) {
            const int line = i < f.lines.size() ? f.lines[i] : 0;
            ++i;
            checkTag(f, tag, at(f.path, line));
        }
    }
    void checkTag(const SurveyedTagFile& f, const TagData& tag, const std::string& where);
    void checkNames(const SurveyedTagFile& f, const TagData& tag, const std::string& where);
    void checkMark(const SurveyedTagFile& f, const TagData& tag, const std::string& where);
    void checkXml(const SurveyedTagFile& f, const TagData& tag, const std::string& where);
    void checkPortal(const SurveyedTagFile& f, const TagData& tag, const std::string& where);
    void checkPortalElements(const SurveyedTagFile& f);
    void checkCoverage();
    void addPlace(std::vector<Place>& places, Place p);

    // The file a tag is resolved against: the template input, the sample
    // output, or empty when there is none.
    std::string target(const SurveyedTagFile& f) const;
    const std::vector<std::string>* textLines(const std::string& path);
    const Parameter* parameter(const std::string& name) const {
        for (const Parameter& p : study_.parameters)
            if (p.name == name) return &p;
        return nullptr;
    }

    MOSAQ::Portals::IPortal& portal_;
    const Study& study_;
    const CheckOptions& options_;
    std::vector<Finding> out_;
    std::set<std::string> boundParameters_;
    std::map<std::string, std::string> boundResponses_;  // name -> where first
    std::vector<Place> inputPlaces_;
    // Free input tags by file and row: Col's number and text, and the place.
    struct Token {
        int col;
        std::string text, where;
    };
    std::map<std::pair<std::string, int>, std::vector<Token>> freeTokens_;
    void checkTokenOrder(const std::string& file, int row, Token t);
    std::map<std::string, std::vector<std::string>> lines_;
    std::map<std::string, std::unique_ptr<pugi::xml_document>> docs_;
    std::map<std::string, std::set<std::string>> listings_;
};

std::string Checker::target(const SurveyedTagFile& f) const {
    if (f.input) return f.taggedFile;
    if (options_.sampleOutputDir.empty()) return {};
    const fs::path p(f.taggedFile);
    return (fs::path(options_.sampleOutputDir) / (p.is_absolute() ? p.filename() : p)).string();
}

const std::vector<std::string>* Checker::textLines(const std::string& path) {
    auto it = lines_.find(path);
    if (it == lines_.end()) {
        std::ifstream in(path, std::ios::binary);
        if (!in) return nullptr;
        std::vector<std::string> lines;
        for (std::string l; std::getline(in, l);) {
            if (!l.empty() && l.back() == '\r') l.pop_back();
            lines.push_back(l);
        }
        it = lines_.emplace(path, std::move(lines)).first;
    }
    return &it->second;
}

bool Checker::fileUsable(const SurveyedTagFile& f) {
    const std::string kind = f.input ? "input" : "output";
    const std::string effect = f.input ? "the run would leave " + shown(f.taggedFile) +
                                             " with its template values"
                                       : "no response would be read from " + f.taggedFile;
    if (f.filteredOut == "it can't be read") {
        error(shown(f.path), "the tag file can't be read");
        return false;
    }
    if (f.owner == TagOwner::None) {
        const std::string d = f.input ? "in_" : "out_";
        error(shown(f.path), "no module claims this tag file: an " + kind +
                                 "'s tag file is named M_" + d + "..., X_" + d + "..., S_" + d +
                                 "... or P_" + d + "...; " + effect);
        return false;
    }
    if (!f.filteredOut.empty()) {
        error(at(f.path, f.contentLine), std::string("the ") + ownerName(f.owner) +
                                             " module leaves this tag file out: " +
                                             f.filteredOut + "; " + effect);
        return false;
    }
    if (f.owner == TagOwner::Portal && f.input && f.readResult != 0) {
        error(shown(f.path), "the portal " + study_.portal +
                                 " tags no inputs: this P_in_ file is never applied; " + effect);
        return false;
    }
    if (f.readResult < 0) {
        const std::string why = firstLine(f.readErrors);
        error(shown(f.path), "no module reads this tag file" + (why.empty() ? "" : ": " + why));
        return false;
    }
    if (f.readResult > 0) {
        const std::string why = firstLine(f.readErrors);
        error(shown(f.path), "the tag file can't be read" + (why.empty() ? "" : ": " + why));
        return false;
    }
    if (f.owner == TagOwner::Portal) checkPortalElements(f);
    if (f.tags.empty()) warn(shown(f.path), "the tag file holds no tags");
    return true;
}

void Checker::checkNames(const SurveyedTagFile& f, const TagData& tag, const std::string& where) {
    const std::vector<std::string> list =
        ownerOfMode(tagProperty(tag, "mode")) == TagOwner::Script ? names(tag.paramName)
                                                                  : std::vector{tag.paramName};
    if (list.empty() || list.front().empty()) {
        error(where, std::string("the tag names no ") + (f.input ? "parameter" : "response"));
        return;
    }
    for (const std::string& n : list) {
        if (!f.input) {
            // A name the study doesn't list is read and dropped, which is
            // harmless; a misspelt one leaves the study's response unbound,
            // and that is reported below.
            bool known = false;
            for (const Response& r : study_.responses) known = known || r.name == n;
            if (!known) continue;
            if (auto [it, fresh] = boundResponses_.emplace(n, where); !fresh)
                error(where, "response '" + n + "' is bound twice: here and at " + it->second +
                                 "; a design keeps only one of the values");
            continue;
        }
        if (tag.paramType == "internal" && n == "Design_Num") continue;
        const Parameter* p = parameter(n);
        if (!p) {
            error(where, "parameter '" + n + "' is not in the study: every design would fail "
                         "to get its value");
            continue;
        }
        boundParameters_.insert(n);
        const std::string format = tagProperty(tag, "format");
        if (format.empty() || format == "Default") continue;
        const Value sample = p->values.empty() ? Value::ofReal(p->min) : p->values.front();
        std::string text, why;
        if (!formatValue(sample, format, text, why))
            error(where, "print format '" + format + "' of parameter '" + n + "': " + why);
    }
}

void Checker::addPlace(std::vector<Place>& places, Place p) {
    for (const Place& q : places) {
        if (q.file != p.file || q.row != p.row || q.end < p.start || p.end < q.start) continue;
        if (q.name == p.name)
            warn(p.where, "'" + p.name + "' is written twice to row " + std::to_string(p.row) +
                              " (also at " + q.where + ")");
        else
            error(p.where, "'" + p.name + "' and '" + q.name + "' (at " + q.where +
                               ") are written to the same characters of row " +
                               std::to_string(p.row) + " of " + shown(p.file));
        return;
    }
    places.push_back(std::move(p));
}

void Checker::checkMark(const SurveyedTagFile& f, const TagData& tag, const std::string& where) {
    const std::string mode = tagProperty(tag, "mode");
    const std::string rowText = tagProperty(tag, "row"), colText = tagProperty(tag, "col");
    const std::string delims = tagProperty(tag, "delims");
    if (!HelperBase::isNumber(rowText) || TaggingImpl::wholeNumber(rowText) < 1) {
        error(where, "row '" + rowText + "' is not a line number (1 or more)");
        return;
    }
    if (!HelperBase::isNumber(colText) || TaggingImpl::wholeNumber(colText) < 1) {
        error(where, "column '" + colText + "' is not a token number (1 or more)");
        return;
    }
    const int row = TaggingImpl::wholeNumber(rowText), col = TaggingImpl::wholeNumber(colText);
    MOSAQ::String set, why;
    if (mode == "free" && !TaggingImpl::parseDelimiters(delims, set, why)) {
        error(where, "delimiters '" + delims + "': a backslash may only be followed by s, t, "
                     "comma or backslash");
        return;
    }
    const std::string file = target(f);
    if (file.empty()) return;
    const std::vector<std::string>* lines = textLines(file);
    if (!lines) {
        error(where, "cannot read " + shown(file) + " to resolve the tag");
        return;
    }
    const std::string what = f.input ? "input " : "sample output ";
    if (static_cast<std::size_t>(row) > lines->size()) {
        error(where, "row " + std::to_string(row) + " is past the end of the " + what +
                         shown(file) + " (" + std::to_string(lines->size()) + " lines)");
        return;
    }
    const std::string& line = (*lines)[static_cast<std::size_t>(row) - 1];
    Place place{file, row, 0, 0, tag.paramName, where};
    if (mode == "free") {
        const int count = TaggingImpl::countTokens(line, set);
        if (col > count) {
            error(where, "token " + std::to_string(col) + " of row " + std::to_string(row) +
                             ": the row has " + std::to_string(count) +
                             " tokens under the delimiters '" + delims + "' in " + shown(file));
            return;
        }
        // The token's columns, for the clash test.
        int n = 0;
        for (std::size_t i = 0; i < line.size(); ++i) {
            const bool delim = set.find(line[i]) != std::string::npos;
            const bool begins = !delim && (i == 0 || set.find(line[i - 1]) != std::string::npos);
            if (begins && ++n == col) place.start = static_cast<int>(i + 1);
            if (n == col && !delim) place.end = static_cast<int>(i + 1);
        }
    } else {
        int start = 1, end = 0;
        if (!TaggingImpl::locateFixedToken(line, delims, col, start, end, why)) {
            error(where, "widths '" + delims + "' don't give field " + std::to_string(col) +
                             ": a width is a whole number of 1 or more, and only the last "
                             "may be '*'");
            return;
        }
        const int length = static_cast<int>(line.size());
        if (start > length) {
            error(where, "columns " + std::to_string(start) + "-" + std::to_string(end) +
                             " start past the end of row " + std::to_string(row) + " (" +
                             std::to_string(length) + " characters) of " + shown(file));
            return;
        }
        if (end > length)
            warn(where, "columns " + std::to_string(start) + "-" + std::to_string(end) +
                            " pass the end of row " + std::to_string(row) + " of " +
                            shown(file) + "; the field is cut to " + std::to_string(start) +
                            "-" + std::to_string(length));
        place.start = start;
        place.end = std::min(end, length);
    }
    if (f.input && mode == "free") checkTokenOrder(file, row, {col, colText, where});
    if (f.input) addPlace(inputPlaces_, std::move(place));
}

// The tags of one row are applied in the text order of their Col, highest
// first, so that each finds its token in the unchanged row. Where text and
// number orders differ ("9" above "10") a lower token is written first, and
// a value holding a delimiter would move the higher one.
void Checker::checkTokenOrder(const std::string& file, int row, Token t) {
    std::vector<Token>& seen = freeTokens_[{file, row}];
    for (const Token& o : seen) {
        if ((t.col < o.col) == (t.text < o.text) || t.col == o.col) continue;
        const Token& lo = t.col < o.col ? t : o;
        const Token& hi = t.col < o.col ? o : t;
        warn(t.where, "tokens " + std::to_string(lo.col) + " and " + std::to_string(hi.col) + " of row " +
                          std::to_string(row) + " are written " + std::to_string(lo.col) +
                          " first (tags of a row go in the text order of Col; the other is at " +
                          (&lo == &t ? hi.where : lo.where) + "): a value holding a delimiter moves token " +
                          std::to_string(hi.col));
        break;
    }
    seen.push_back(std::move(t));
}

void Checker::checkXml(const SurveyedTagFile& f, const TagData& tag, const std::string& where) {
    const std::string xpath = tagProperty(tag, "xpath"), xid = tagProperty(tag, "xid");
    const MOSAQ::StringList xs = XmlTagging::splitPath(xpath), is = XmlTagging::splitPath(xid);
    if (xs.empty() || is.empty()) {
        error(where, std::string("the tag has no ") + (xs.empty() ? "xpath" : "xid"));
        return;
    }
    const std::string file = target(f);
    if (file.empty()) return;
    auto it = docs_.find(file);
    if (it == docs_.end()) {
        auto doc = std::make_unique<pugi::xml_document>();
        const pugi::xml_parse_result r = doc->load_file(file.c_str());
        if (!r) {
            error(where, "cannot read " + shown(file) + " as XML: " + r.description());
            doc.reset();
        }
        it = docs_.emplace(file, std::move(doc)).first;
    }
    if (!it->second) return;
    const MOSAQ::Portals::XmlTarget element = XmlTagging::resolvePath(*it->second, xs);
    if (element.empty() || !element.node) {
        error(where, "xpath '" + xpath + "' finds no element in " + shown(file));
        return;
    }
    const MOSAQ::Portals::XmlTarget place = XmlTagging::resolvePath(element.node, is);
    if (place.empty()) {
        error(where, "xid '" + xid + "' finds nothing below '" + xpath + "' in " + shown(file));
        return;
    }
    if (!f.input) return;
    // The same node or attribute written for two parameters.
    const std::string key =
        file + "#" + std::to_string(reinterpret_cast<std::uintptr_t>(
                         place.attribute ? static_cast<const void*>(place.attribute.internal_object())
                                         : static_cast<const void*>(place.node.internal_object())));
    addPlace(inputPlaces_, {key, 1, 1, 1, tag.paramName, where});
}

void Checker::checkPortalElements(const SurveyedTagFile& f) {
    std::ifstream in(f.path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    pugi::xml_document doc;
    if (!doc.load_buffer(text.data(), text.size())) return;
    struct Walker : pugi::xml_tree_walker {
        std::vector<pugi::xml_node> odd;
        bool for_each(pugi::xml_node& n) override {
            static const std::set<std::string> known{"Key", "tag", "Prop", "PortalData"};
            if (n.type() == pugi::node_element && !known.count(n.name())) odd.push_back(n);
            return true;
        }
    } walker;
    doc.document_element().traverse(walker);
    for (const pugi::xml_node& n : walker.odd) {
        const std::ptrdiff_t off = std::clamp<std::ptrdiff_t>(
            n.offset_debug(), 0, static_cast<std::ptrdiff_t>(text.size()));
        const int line = 1 + static_cast<int>(std::count(text.begin(), text.begin() + off, '\n'));
        error(at(f.path, line), std::string("element <") + n.name() +
                                    "> is not read: a portal tag file holds Key, tag, Prop "
                                    "and PortalData elements");
    }
}

void Checker::checkPortal(const SurveyedTagFile& f, const TagData& tag, const std::string& where) {
    static const std::vector<std::string> kKnown{"name", "paramName", "paramType", "format"};
    for (const auto& p : tag.properties) {
        if (!p.kind.empty() || p.name == "filename" || p.name == "mode" || p.name == "format")
            continue;
        std::string hint;
        for (const std::string& k : kKnown)
            if (editDistance(p.name, k) <= 2) hint = " (did you mean '" + k + "'?)";
        error(where, "unknown attribute '" + p.name + "' on a tag" + hint +
                         "; a tag has name, paramName, paramType and format");
    }
    if (tag.path.size() < 2) {
        error(where, "the tag stands outside a Key: the portal reads only tags with a group "
                     "and a name, such as <Key name=\"Variables\"><tag name=\"x\" .../>");
        return;
    }
    const std::string file = target(f);
    if (file.empty() || f.input) return;
    auto it = listings_.find(file);
    if (it == listings_.end()) {
        std::list<ItemGroup> groups;
        MOSAQ::String errors;
        std::set<std::string> rows;
        if (!portal_.parseOutputFile(file, nullptr, groups, errors))
            error(where, "the portal cannot list the sample output " + shown(file) + ": " +
                             firstLine(errors));
        for (const ItemGroup& g : groups)
            for (const auto& item : g.items) rows.insert(item.name);
        it = listings_.emplace(file, std::move(rows)).first;
    }
    // The portal reads the variable named by the path's second entry; a
    // file written with a version below 7.2 keeps "Key" as the first.
    if (!it->second.empty() && !it->second.count(tag.path[1]))
        error(where, "'" + tag.path[1] + "' is not among the rows of the sample output " +
                         shown(file) + " (portal-run inspect lists them)");
}

void Checker::checkTag(const SurveyedTagFile& f, const TagData& tag, const std::string& where) {
    const TagOwner byMode = ownerOfMode(tagProperty(tag, "mode"));
    if (byMode != f.owner) {
        error(where, "a tag of mode '" + tagProperty(tag, "mode") + "' in a " + ownerName(f.owner) +
                         " tag file");
        return;
    }
    checkNames(f, tag, where);
    switch (byMode) {
        case TagOwner::Mark: checkMark(f, tag, where); break;
        case TagOwner::Xml: checkXml(f, tag, where); break;
        case TagOwner::Portal: checkPortal(f, tag, where); break;
        case TagOwner::Script:
            if (tagProperty(tag, "code").find_first_not_of(" \t\n") == std::string::npos)
                error(where, "the script is empty");
            break;
        case TagOwner::None: break;
    }
}

void Checker::checkCoverage() {
    for (const Parameter& p : study_.parameters)
        if (!boundParameters_.count(p.name))
            warn(at(study_.path, p.line),
                 "parameter '" + p.name + "' is bound nowhere: its values reach no input");
    for (const Response& r : study_.responses)
        if (!boundResponses_.count(r.name))
            error(shown(study_.path), "response '" + r.name +
                                          "' is bound nowhere: every design would fail to read it");
}

std::vector<Finding> Checker::run() {
    for (const SurveyedTagFile& f : surveyStudy(portal_, study_)) checkFile(f);
    checkCoverage();
    return std::move(out_);
}

}  // namespace

std::vector<Finding> checkStudy(MOSAQ::Portals::IPortal& portal, const Study& study,
                                const CheckOptions& options) {
    return Checker(portal, study, options).run();
}

std::string findingPlace(const std::string& path, int line) { return at(path, line); }

std::vector<Finding> checkTagFile(MOSAQ::Portals::IPortal& portal, const Study& study,
                                  const CheckOptions& options, const SurveyedTagFile& file) {
    return Checker(portal, study, options).runOne(file);
}

int printFindings(const std::vector<Finding>& findings, std::FILE* out) {
    int errors = 0;
    for (bool wantError : {true, false}) {
        for (const Finding& f : findings) {
            if (f.error != wantError) continue;
            errors += f.error;
            std::fprintf(out, "%s%s%s: %s\n", f.where.c_str(), f.where.empty() ? "" : ": ",
                         f.error ? "error" : "warning", f.text.c_str());
        }
    }
    return errors;
}

}  // namespace portalrun
