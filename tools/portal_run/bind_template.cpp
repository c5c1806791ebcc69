// Placeholders are replaced left to right, and each tag is made from the line
// as it stands after the replacements before it: a fixed field's columns and
// a free token's ordinal are those of the written input. A free value's
// length changes from design to design, so a fixed field may not follow a
// free one on a line, a free placeholder must stand between delimiters,
// since the mark module replaces a whole token, and a free one may follow a
// fixed field only where delimiters keep that field one token.
#include "bind_template.h"

#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "bind.h"
#include "designs.h"
#include "zeltra/tagging.h"

namespace portalrun {

namespace fs = std::filesystem;
using MOSAQ::Portals::TaggingImpl;

namespace {

struct Placeholder {
    std::string name, format;
    int width = 0;  // from the format; 0 when it gives none
};

bool parsePlaceholder(const std::string& inner, Placeholder& p, std::string& why) {
    const auto colon = inner.find(':');
    auto trim = [](std::string s) {
        const auto b = s.find_first_not_of(" \t");
        return b == std::string::npos ? std::string() : s.substr(b, s.find_last_not_of(" \t") - b + 1);
    };
    p.name = trim(inner.substr(0, colon));
    p.format = colon == std::string::npos ? "" : trim(inner.substr(colon + 1));
    if (p.name.empty() || p.name.find_first_of(" \t{}") != std::string::npos) {
        why = "'" + inner + "' is not a parameter name";
        return false;
    }
    if (!p.format.empty()) {
        const auto pct = p.format.find('%');
        if (pct == std::string::npos) {
            why = "the format '" + p.format + "' has no % conversion";
            return false;
        }
        std::size_t i = pct + 1;
        while (i < p.format.size() && std::strchr("-+ #0", p.format[i])) ++i;
        while (i < p.format.size() && std::isdigit(static_cast<unsigned char>(p.format[i])))
            p.width = p.width * 10 + (p.format[i++] - '0');
    }
    return true;
}

}  // namespace

bool bindTemplate(MOSAQ::Portals::IPortal& portal, const Study* study, const TemplateRequest& r,
                  std::string& done, std::string& error) {
    std::ifstream in(r.templatePath, std::ios::binary);
    if (!in) {
        error = "cannot read the template " + r.templatePath;
        return false;
    }
    std::error_code ec;
    if (fs::weakly_canonical(r.templatePath, ec) == fs::weakly_canonical(r.outPath, ec)) {
        error = "--out must name another file than the template";
        return false;
    }
    Study local;
    if (study) local = *study;
    if (!r.analysis.empty()) local.name = r.analysis;
    if (local.name.empty()) {
        error = "give --study or --analysis: the tag file is named after the analysis";
        return false;
    }
    const std::string fileName = fs::path(r.outPath).filename().string();
    std::string tagsPath = r.tagsPath;
    for (const FileSpec& f : local.inputs)
        if (tagsPath.empty() && fs::path(f.file).filename() == fileName) tagsPath = f.tags;
    if (tagsPath.empty())
        tagsPath = (fs::path(r.outPath).parent_path() / ("M_in_" + local.name + "_" + fileName))
                       .string();
    if (fs::path(tagsPath).filename().string().rfind("M_in_", 0) != 0) {
        error = "the tag file for " + fileName + " is " + tagsPath +
                ", which is not a mark tag file (M_in_...)";
        return false;
    }

    MOSAQ::String set, why;
    TaggingImpl::parseDelimiters(kDefaultDelimiters, set, why);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string output;
    std::list<TagData> tags;
    int fixedCount = 0, row = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        ++row;
        const std::string where = r.templatePath + ":" + std::to_string(row) + ": ";
        std::string out;
        bool freeSeen = false;
        bool fixedMerges = false;  // a fixed field that may run into its neighbours' tokens
        for (std::size_t pos = 0; pos < line.size();) {
            const auto open = line.find("{{", pos);
            if (open == std::string::npos) {
                out += line.substr(pos);
                break;
            }
            const auto close = line.find("}}", open + 2);
            if (close == std::string::npos) {
                error = where + "'{{' without '}}'";
                return false;
            }
            out += line.substr(pos, open - pos);
            Placeholder p;
            if (!parsePlaceholder(line.substr(open + 2, close - open - 2), p, why)) {
                error = where + why;
                return false;
            }
            const Parameter* param = nullptr;
            for (const Parameter& q : local.parameters)
                if (q.name == p.name) param = &q;
            if (study && !param) {
                error = where + "the study has no parameter '" + p.name + "'";
                return false;
            }
            const Value v = !param                 ? Value::ofReal(0)
                            : param->values.empty() ? Value::ofReal(param->min)
                                                    : param->values.front();
            std::string value;
            if (!formatValue(v, p.format.empty() ? "Default" : p.format, value, why)) {
                error = where + "{{" + p.name + "}}: " + why;
                return false;
            }
            TagData tag;
            tag.paramName = p.name;
            tag.paramType = param && param->type == ParamType::Integer ? "Integer"
                            : param && param->type == ParamType::Text  ? "String"
                                                                        : "Real";
            tag.path = {p.name};
            const std::string format = p.format.empty() ? "Default" : p.format;
            if (p.width > 0) {
                if (freeSeen) {
                    error = where + "{{" + p.name + ":" + p.format + "}} has a width but follows "
                            "a placeholder without one, whose length changes from design to "
                            "design: give that one a width too";
                    return false;
                }
                if (value.size() > static_cast<std::size_t>(p.width)) {
                    error = where + "the value " + value + " of '" + p.name +
                            "' is wider than the placeholder's " + std::to_string(p.width) +
                            " columns";
                    return false;
                }
                const bool bounded =
                    (out.empty() || set.find(out.back()) != std::string::npos) &&
                    (close + 2 >= line.size() || set.find(line[close + 2]) != std::string::npos);
                fixedMerges = fixedMerges || !bounded;
                const std::size_t start = out.size() + 1;
                out += std::string(static_cast<std::size_t>(p.width) - value.size(), ' ') + value;
                tag.properties = {{"mode", "fixed", ""},
                                  {"row", std::to_string(row), ""},
                                  {"delims", start == 1 ? std::to_string(p.width)
                                                        : std::to_string(start - 1) + "." +
                                                              std::to_string(p.width), ""},
                                  {"col", start == 1 ? "1" : "2", ""},
                                  {"format", format, ""},
                                  {"filename", fileName, ""}};
                ++fixedCount;
            } else {
                const bool before = out.empty() || set.find(out.back()) != std::string::npos;
                const bool after = close + 2 >= line.size() ||
                                   set.find(line[close + 2]) != std::string::npos;
                if (fixedMerges) {
                    error = where + "{{" + p.name + "}} follows a placeholder with a width that "
                            "touches other text, so its token number would change with that "
                            "value: put delimiters around the field or give {{" + p.name +
                            "}} a width too";
                    return false;
                }
                if (!before || !after || TaggingImpl::countTokens(value, set) != 1) {
                    error = where + "{{" + p.name + "}} must stand between delimiters (blank, "
                            "tab, comma, ; \" = ( ) ') and its value be one token, since a free "
                            "tag replaces a whole token; or give it a width, as {{" + p.name +
                            ":%10g}}";
                    return false;
                }
                const int token = TaggingImpl::countTokens(out, set) + 1;
                out += value;
                freeSeen = true;
                tag.properties = {{"mode", "free", ""},
                                  {"row", std::to_string(row), ""},
                                  {"delims", kDefaultDelimiters, ""},
                                  {"col", std::to_string(token), ""},
                                  {"format", format, ""},
                                  {"filename", fileName, ""}};
            }
            tags.push_back(std::move(tag));
            pos = close + 2;
        }
        output += out;
        if (!lines.eof()) output += "\n";
    }
    if (tags.empty()) {
        error = r.templatePath + " holds no placeholder such as {{name}} or {{name:%10.4f}}";
        return false;
    }
    {
        std::ofstream o(r.outPath, std::ios::binary | std::ios::trunc);
        if (!(o << output) || !o.flush()) {
            error = "cannot write " + r.outPath;
            return false;
        }
    }
    if (!writeTagFile(portal, local, tagsPath, fileName, true,
                      tagProperty(tags.front(), "mode"), tags, {}, error))
        return false;
    done = "wrote " + r.outPath + " and " + tagsPath + ": " + std::to_string(tags.size()) +
           " tags (" + std::to_string(tags.size() - fixedCount) + " free, " +
           std::to_string(fixedCount) + " fixed)";
    return true;
}

}  // namespace portalrun
