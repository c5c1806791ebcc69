// The XML module's part of a design's run: tagInputs writes the design's
// values into each tagged XML input and saves it over the file; tagOutputs
// reads one value per tag out of each tagged XML output and reports it.
//
// A failing tag never stops the next one: its message goes to the errors
// text, and an input is saved with every value that could be written. An
// input that doesn't load is never saved, so it stays byte for byte as it
// was. A tag file that can't be read is an error of the run, so a study never
// runs on with the template's values unnoticed.
#include "xml_path.h"
#include "xml_tagging_files.h"

namespace MOSAQ::Portals {

namespace {

// Node types that hold a value of their own (what set_value accepts).
bool holdsValue(pugi::xml_node node) {
    switch (node.type()) {
        case pugi::node_pcdata:
        case pugi::node_cdata:
        case pugi::node_comment:
        case pugi::node_pi:
        case pugi::node_doctype:
            return true;
        default:
            return false;
    }
}

}  // namespace

bool XmlTagging::runTags(const String& tagFile, const String& fileName, bool input,
                         std::list<TagData>& tags, String& errors) {
    String reason;
    StringStringMap fresh{{input ? "inputFilename" : "outputFilename", fileName}}, outputs;
    if (input) {
        if (getInputTags(tagFile, fileName, tags)) return true;
        if (tagCache.count(Support::File::base(tagFile, true))) return false;  // read, no tags
        readInputTagging(tagFile, fresh, tags, outputs, reason);
    } else if (readOutputTagging(tagFile, fresh, tags, outputs, reason) == 0) {
        return true;
    }
    // The file passed the sorting by name and first lines but isn't a tag
    // definition: without this line the file would go untagged in silence.
    tags.clear();
    if (!reason.empty()) addError(errors, section(reason, "\n", 0, 1));
    addError(errors, moduleText(".err.readTagDefnFile"), tagFile);
    return false;
}

bool XmlTagging::tagInputs(const StringStringMap& data, void*, String& errors) {
    if (!context) return false;
    StringList files, tagFiles;
    splitFileLists(data, "inputFilepaths", "inputTagFilepaths", files, tagFiles);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (tagFiles[i].empty()) continue;
        std::list<TagData> tags;
        if (runTags(tagFiles[i], Support::File::base(files[i], true), true, tags, errors))
            tagInputFile(files[i], tags, data, errors);
    }
    return !hasError(errors);
}

bool XmlTagging::tagOutputs(const StringStringMap& data, void*, String& errors) {
    if (!context) return false;
    StringList files, tagFiles;
    splitFileLists(data, "outputFilepaths", "outputTagFilepaths", files, tagFiles);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (tagFiles[i].empty()) continue;
        std::list<TagData> tags;
        if (runTags(tagFiles[i], Support::File::base(files[i], true), false, tags, errors))
            tagOutputFile(files[i], tags, data, errors);
    }
    return !hasError(errors);
}

namespace {

// One error line with every argument in its place, none dropped: a path
// joined from empty segments is still an argument.
void errorLine(String& errors, const String& pattern, const StringList& args) {
    HelperBase::addLine(errors, HelperBase::formatList(HelperBase::normalizeLevel(pattern, "ERROR"), args));
}

String xmlText(const char* id) { return Support::StringTable::lookup("Xml", String(".Portal") + id); }

// Splits and resolves a tag's two paths; false, with the message, when either
// finds nothing. xpath and xid come back joined, for later messages.
bool locate(xmlpath::Resolver& resolver, pugi::xml_node document, const TagData& tag,
            XmlTarget& target, String& xpath, String& xid, String& errors) {
    const StringList xs = XmlTagging::splitPath(HelperBase::property(tag.properties, "xpath"));
    const StringList is = XmlTagging::splitPath(HelperBase::property(tag.properties, "xid"));
    xpath = HelperBase::join(xs, "/");
    xid = HelperBase::join(is, "/");
    if (xs.empty() || is.empty()) {
        HelperBase::addError(errors, xmlText(".err.noXmlPath"), tag.paramName);
        return false;
    }
    const XmlTarget element = resolver.resolve(document, xs);
    if (element.empty()) {
        errorLine(errors, xmlText(".err.noXmlElement"), {tag.paramName, xpath});
        return false;
    }
    target = resolver.resolve(element.node, is);
    if (target.empty()) {
        errorLine(errors, xmlText(".err.noXmlNode"), {tag.paramName, xpath, xid});
        return false;
    }
    return true;
}

}  // namespace

bool XmlTagging::tagInputFile(const String& path, const std::list<TagData>& tags,
                              const StringStringMap&, String& errors) {
    if (!context) return false;
    xmlfile::XmlFile file;
    xmlfile::load(file, path, pugi::parse_full);
    if (!file.result) {
        addError(errors, file.result.description());
        addError(errors, moduleText(".err.readInputFile"), path);
        return false;
    }
    xmlpath::Resolver resolver(true);
    for (const TagData& tag : tags) {
        const String v = context->getDesignValue(tag.paramType, tag.paramName, path,
                                                 property(tag.properties, "format"), errors);
        XmlTarget target;
        String xpath, xid;
        if (!locate(resolver, file.document, tag, target, xpath, xid, errors))
            continue;
        bool written;
        if (target.attribute) {
            written = target.attribute.set_value(v.c_str());
            resolver.attributeWritten(resolver.attributeOwner(), target.attribute.name());
        } else {
            written = target.node.set_value(v.c_str());
        }
        if (!written)
            errorLine(errors, moduleText(".err.writeXmlNodeValue"), {tag.paramName, xpath, xid});
    }
    if (!xmlfile::save(file.document, path, file.result.encoding, file.byteOrderMark))
        addError(errors, moduleText(".err.writeModInputFile"), path);
    return !hasError(errors);
}

bool XmlTagging::tagOutputFile(const String& path, const std::list<TagData>& tags,
                               const StringStringMap& data, String& errors) {
    if (!context) return false;
    xmlfile::XmlFile file;
    xmlfile::load(file, path, pugi::parse_default);
    if (!file.result) {
        addError(errors, file.result.description());
        addError(errors, moduleText(".err.readOutputFile"), path);
        return false;
    }
    xmlpath::Resolver resolver(true);
    for (const TagData& tag : tags) {
        const String& name = tag.paramName;
        XmlTarget target;
        String xpath, xid;
        if (!locate(resolver, file.document, tag, target, xpath, xid, errors))
            continue;
        if (!target.attribute && !holdsValue(target.node)) {
            errorLine(errors, moduleText(".err.readXmlNodeValue"), {name, xpath, xid});
            continue;
        }
        const String text = target.attribute ? target.attribute.value() : target.node.value();
        StringStringMap props;
        context->getAnalysisProperties(value(data, "analysisName"), "responseDataType#" + name,
                                       props);
        ResponseValues values;
        if (value(props, "responseDataType") != "Numeric") {
            values.strings.push_back(text);
        } else if (isNumber(text)) {
            values.numbers.push_back(parseNumber(text));
        } else {
            reportErrorInCall(name, data,
                              formatList(moduleText(".err.responseNotANumber"), {name, text}));
            continue;
        }
        reportValues(name, data, values);
    }
    return !hasError(errors);
}

}  // namespace MOSAQ::Portals
