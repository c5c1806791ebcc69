// A bind never edits a tag file in place: the plug-in writes the whole list
// (the tags read back from the old file and the new one) into a private
// folder beside it, the result is read back through the plug-in, and a
// rename puts it in place. Existing tags go through the same reader and
// writer a host would use, so what they were is what they stay.
#include "bind.h"

#include <stdlib.h>

#include <filesystem>

#include "tag_survey.h"
#include "zeltra/helper_base.h"

namespace portalrun {

namespace fs = std::filesystem;

const char* const kDefaultDelimiters = "\\,;\"=()'\\t\\s";

namespace {

const FileSpec* findSpec(const Study& study, const std::string& file, bool& input,
                         std::string& error) {
    const FileSpec* found = nullptr;
    int matches = 0;
    auto look = [&](const std::vector<FileSpec>& specs, bool in) {
        for (const FileSpec& f : specs) {
            if (f.file != file && fs::path(f.file).filename() != fs::path(file).filename())
                continue;
            found = &f;
            input = in;
            ++matches;
        }
    };
    look(study.inputs, true);
    look(study.outputs, false);
    if (matches == 1) return found;
    error = matches == 0 ? "'" + file + "' is neither an input nor an output of the study " +
                               study.file
                         : "'" + file + "' names more than one file of the study " + study.file +
                               "; give its path as the study does";
    return nullptr;
}

TagOwner ownerOfKind(BindKind kind) {
    switch (kind) {
        case BindKind::Free:
        case BindKind::Fixed: return TagOwner::Mark;
        case BindKind::Xml: return TagOwner::Xml;
        case BindKind::Script: return TagOwner::Script;
        case BindKind::Portal: return TagOwner::Portal;
    }
    return TagOwner::None;
}

const char* prefixOf(TagOwner owner) {
    switch (owner) {
        case TagOwner::Mark: return "M_";
        case TagOwner::Xml: return "X_";
        case TagOwner::Script: return "S_";
        default: return "P_";
    }
}

std::string typeWord(ParamType t) {
    switch (t) {
        case ParamType::Integer: return "Integer";
        case ParamType::Text: return "String";
        case ParamType::Real: break;
    }
    return "Real";
}

// The reader keeps a script's SET_PARAMETER_LIST names in paramName and only
// a "%names%" in the code; the writer copies the code as it stands, so the
// names go back in before a script is written again.
void restoreScriptNames(TagData& tag) {
    for (auto& p : tag.properties) {
        if (p.name != "code") continue;
        const std::string mark = "SET_PARAMETER_LIST(%names%)";
        if (auto at = p.value.find(mark); at != std::string::npos)
            p.value.replace(at, mark.size(), "SET_PARAMETER_LIST(" + tag.paramName + ")");
    }
}

bool newTag(const Study& study, const BindRequest& r, bool input, const std::string& fileName,
            TagData& tag, std::string& error) {
    tag.paramName = r.name;
    if (r.kind != BindKind::Script && r.name.empty()) {
        error = std::string("give the name of the ") + (input ? "parameter" : "response");
        return false;
    }
    tag.paramType = r.type;
    if (tag.paramType.empty()) {
        tag.paramType = input ? "Real" : "Response";
        for (const Parameter& p : study.parameters)
            if (input && p.name == r.name) tag.paramType = typeWord(p.type);
    }
    const std::string format = r.format.empty() && input ? "Default" : r.format;
    auto& props = tag.properties;
    switch (r.kind) {
        case BindKind::Free:
        case BindKind::Fixed: {
            std::string delims = r.delims.empty() && r.kind == BindKind::Free ? kDefaultDelimiters
                                                                                : r.delims;
            int col = r.token;
            if (r.firstColumn > 0) {
                if (r.lastColumn < r.firstColumn) {
                    error = "columns " + std::to_string(r.firstColumn) + "-" +
                            std::to_string(r.lastColumn) + ": the last is before the first";
                    return false;
                }
                // A width of the columns before the field, then the field's.
                const int width = r.lastColumn - r.firstColumn + 1;
                delims = r.firstColumn == 1 ? std::to_string(width)
                                            : std::to_string(r.firstColumn - 1) + "." +
                                                  std::to_string(width);
                col = r.firstColumn == 1 ? 1 : 2;
            }
            // The field is written as it stands between commas and read back
            // trimmed: a bare comma or an outer blank wouldn't survive.
            for (std::size_t i = 0; i < delims.size(); ++i) {
                if (delims[i] == '\\') ++i;
                else if (delims[i] == ',' || ((i == 0 || i + 1 == delims.size()) &&
                                              (delims[i] == ' ' || delims[i] == '\t'))) {
                    error = "'" + delims + "': write a comma as \\, and a blank or tab as \\s "
                            "or \\t, or the tag file can't be read back";
                    return false;
                }
            }
            if (r.row < 1 || col < 1 || delims.empty()) {
                error = "a mark tag needs --row and --token (with --widths when fixed) or "
                        "--columns, each 1 or more";
                return false;
            }
            props = {{"mode", r.kind == BindKind::Free ? "free" : "fixed", ""},
                     {"row", std::to_string(r.row), ""},
                     {"delims", delims, ""},
                     {"col", std::to_string(col), ""},
                     {"format", format.empty() ? "Default" : format, ""},
                     {"filename", fileName, ""}};
            tag.path = {r.name};
            return true;
        }
        case BindKind::Xml:
            props = {{"mode", "xml", ""}, {"format", format, ""}, {"xpath", r.xpath, ""},
                     {"xid", r.xid, ""},  {"filename", fileName, ""}};
            return true;
        case BindKind::Script: {
            std::string code = r.script;
            while (!code.empty() && (code.back() == '\n' || code.back() == '\r')) code.pop_back();
            const auto open = code.find("SET_PARAMETER_LIST(");
            const auto close = code.find(')', open == std::string::npos ? 0 : open);
            if (open == std::string::npos || close == std::string::npos) {
                error = "the script declares no names: it needs a line "
                        "SET_PARAMETER_LIST(name, ...)";
                return false;
            }
            const std::size_t from = open + std::string("SET_PARAMETER_LIST(").size();
            tag.paramName = code.substr(from, close - from);
            props = {{"mode", "script", ""}, {"code", code, ""}, {"filename", fileName, ""}};
            return true;
        }
        case BindKind::Portal:
            if (r.variable.empty() || r.group.empty()) {
                error = "a portal tag needs --variable (and a non-empty --group)";
                return false;
            }
            tag.path = {r.group, r.column > 0 ? r.variable + "__Col" + std::to_string(r.column)
                                              : r.variable};
            props = {{"mode", "portal", ""}, {"filename", fileName, ""}};
            if (!r.format.empty()) props.insert(props.begin(), {"format", r.format, ""});
            return true;
    }
    return false;
}

}  // namespace

std::string tagFileFor(const Study& study, const FileSpec& spec, BindKind kind, bool input) {
    if (!spec.tags.empty()) return spec.tags;
    return (fs::path(study.dir) / (std::string(prefixOf(ownerOfKind(kind))) +
                                   (input ? "in_" : "out_") + study.name + "_" +
                                   fs::path(spec.file).filename().string()))
        .string();
}

bool writeTagFile(MOSAQ::Portals::IPortal& portal, const Study& study, const std::string& tagFile,
                  const std::string& taggedName, bool input, const std::string& mode,
                  const std::list<TagData>& tags, const StringStringMap& extra,
                  std::string& error) {
    const fs::path target = fs::absolute(tagFile);
    std::string pattern = (target.parent_path() / ".portal-run-bind-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) {
        error = "cannot write in " + target.parent_path().string();
        return false;
    }
    const fs::path tmp = pattern;
    struct Cleanup {
        fs::path dir;
        ~Cleanup() {
            std::error_code ec;
            fs::remove_all(dir, ec);
        }
    } cleanup{tmp};

    StringStringMap data = extra;
    data["mode"] = mode;
    data["destDir"] = tmp.string();
    data["version"] = study.version;
    data["analysisName"] = study.name;
    data["solverName"] = study.portal;
    StringStringMap outputs;
    MOSAQ::String errors;
    bool ok = input ? portal.writeInputTagFile(taggedName, tags, data, outputs, errors)
                    : portal.writeOutputTagFile(taggedName, tags, data, outputs, errors);
    // A portal that writes no input tag files of its own leaves them to the
    // modules, whose writer for the other direction lays the file out alike;
    // only the name differs, and the file is renamed below anyway.
    if (!ok && input && errors.empty() && mode != "portal")
        ok = portal.writeOutputTagFile(taggedName, tags, data, outputs, errors);
    std::vector<fs::path> written;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(tmp, ec)) written.push_back(e.path());
    if (!ok || written.size() != 1 || MOSAQ::Portals::HelperBase::hasError(errors)) {
        error = "the plug-in could not write the tag file" +
                (errors.empty() ? std::string() : ": " + errors);
        return false;
    }
    const fs::path staged = tmp / target.filename();
    fs::rename(written.front(), staged, ec);
    const SurveyedTagFile back = ec ? SurveyedTagFile{}
                                    : surveyTagFile(portal, study, staged.string(), taggedName,
                                                    input);
    if (ec || back.readResult != 0 || back.tags.size() != tags.size()) {
        error = "the tag file the plug-in wrote reads back " + std::to_string(back.tags.size()) +
                " tags instead of " + std::to_string(tags.size()) + "; " + tagFile +
                " is unchanged";
        return false;
    }
    fs::rename(staged, target, ec);
    if (ec) {
        error = "cannot put the tag file in place as " + target.string() + ": " + ec.message();
        return false;
    }
    return true;
}

bool bindTag(MOSAQ::Portals::IPortal& portal, const Study& study, const BindRequest& r,
             std::string& done, std::string& error, std::vector<Finding>& findings) {
    bool input = true;
    const FileSpec* spec = findSpec(study, r.file, input, error);
    if (!spec) return false;
    const TagOwner owner = ownerOfKind(r.kind);
    const std::string fileName = fs::path(spec->file).filename().string();
    if (owner == TagOwner::Portal && input) {
        error = "the portal " + study.portal + " tags no inputs; bind " + fileName +
                " with a mark, XML or script tag";
        return false;
    }
    const std::string tagFile = tagFileFor(study, *spec, r.kind, input);
    const TagOwner named = ownerByName(fs::path(tagFile).filename().string(), input);
    if (named != owner) {
        error = "the study's tag file for " + fileName + " is " + tagFile + ", which is " +
                (named == TagOwner::None ? std::string("read by no module")
                                         : std::string("a ") + ownerName(named) + " tag file") +
                "; a " + ownerName(owner) + " tag can't go into it";
        return false;
    }

    SurveyedTagFile file;
    std::error_code ec;
    if (fs::exists(tagFile, ec)) {
        file = surveyTagFile(portal, study, tagFile, spec->file, input);
        if (!file.filteredOut.empty() || file.readResult != 0) {
            const std::string why = !file.filteredOut.empty() ? file.filteredOut : file.readErrors;
            error = "cannot add to " + tagFile + ", which the plug-in can't read" +
                    (why.empty() ? "" : ": " + why) + " (portal-run check tells more)";
            return false;
        }
    }
    file.path = tagFile;
    file.taggedFile = spec->file;
    file.input = input;
    file.owner = owner;
    file.readResult = 0;
    file.filteredOut.clear();
    for (TagData& t : file.tags) {
        if (tagProperty(t, "filename").empty()) t.properties.push_back({"filename", fileName, ""});
        if (owner == TagOwner::Script) restoreScriptNames(t);
    }
    TagData tag;
    if (!newTag(study, r, input, fileName, tag, error)) return false;
    file.tags.push_back(tag);
    file.lines.resize(file.tags.size() - 1);
    file.lines.push_back(0);

    const std::string newPlace = findingPlace(tagFile, 0);
    bool refused = false;
    for (Finding& f : checkTagFile(portal, study, {}, file)) {
        if (f.where != newPlace) continue;
        f.where = "new tag";
        refused = refused || f.error;
        findings.push_back(f);
    }
    if (refused) {
        error = "the tag was not added";
        return false;
    }
    StringStringMap extra;
    for (const char* key : {"delims", "widths"})
        if (auto it = file.readOutputs.find(key); it != file.readOutputs.end()) extra[key] = it->second;
    if (!writeTagFile(portal, study, tagFile, fileName, input, tagProperty(tag, "mode"), file.tags,
                      extra, error))
        return false;
    done = "bound '" + tag.paramName + "' in " + tagFile + " (" +
           std::to_string(file.tags.size()) + (file.tags.size() == 1 ? " tag)" : " tags)");
    if (spec->tags.empty())
        done += "; the study names no tag file for " + fileName + ": add tags = \"" +
                fs::path(tagFile).filename().string() + "\" to its entry in " + study.file;
    return true;
}

}  // namespace portalrun
