// Command lines of inspect, bind and check. Every subcommand makes a portal
// of its own through the plug-in, with a host that has no design: what it
// shows and writes is what the plug-in shows and writes.
#include "commands.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <vector>

#include "bind.h"
#include "bind_template.h"
#include "check.h"
#include "host.h"
#include "inspect.h"
#include "plugin.h"
#include "study_run.h"

namespace portalrun {

namespace {

const char* const kInspectUsage =
    "usage: portal-run inspect [--plugin PATH] [--delims SPEC] FILE\n"
    "\n"
    "Shows what FILE holds, the way a host shows it to bind parameters and\n"
    "responses: an SDF file as the portal lists it (groups and rows with their\n"
    "values), an XML document as its elements with the xpath and xid of each\n"
    "attribute and text, and any other file as numbered rows with a column\n"
    "ruler and the numbers of the free tokens under each row (delimiters\n"
    "SPEC, default \\,;\"=()'\\t\\s). See docs/tag-files.md.\n";

const char* const kBindUsage =
    "usage: portal-run bind [--plugin PATH] STUDY.toml FILE NAME PLACE [--format FMT]\n"
    "                       [--type TYPE]\n"
    "       portal-run bind [--plugin PATH] STUDY.toml FILE --script SCRIPT\n"
    "       portal-run bind template TEMPLATE --out FILE [--study STUDY.toml]\n"
    "                       [--analysis NAME] [--tags TAGFILE] [--plugin PATH]\n"
    "\n"
    "Binds the parameter (of an input) or response (of an output) NAME to a\n"
    "place in FILE, one of the study's files, by adding a tag to the study's\n"
    "tag file for FILE. PLACE is one of:\n"
    "  --row R --token T [--delims SPEC]    free mark tag: token T of row R\n"
    "  --row R --token T --widths SPEC      fixed mark tag: field T of widths SPEC\n"
    "  --row R --columns A-B                fixed mark tag: columns A to B\n"
    "  --xpath PATH --xid ID                XML tag\n"
    "  --variable VAR [--column C] [--group G]   portal tag on an SDF output\n"
    "  --script SCRIPT                      script tag; the script names its own\n"
    "                                       parameters or responses\n"
    "The tag is checked against the template input first and refused when it\n"
    "doesn't resolve. 'bind template' turns {{name}} and {{name:%10.4f}}\n"
    "placeholders into FILE and its mark tag file. See docs/tag-files.md.\n";

const char* const kCheckUsage =
    "usage: portal-run check [--plugin PATH] [--sample-output DIR] STUDY.toml\n"
    "\n"
    "Reads every tag file of the study through the plug-in and reports tag\n"
    "files no module reads, tags that don't resolve in the template inputs (or\n"
    "in the outputs of DIR, an earlier run folder), names in tags the study\n"
    "lacks, parameters and responses bound nowhere, and clashing bindings.\n"
    "Exit 0 without errors, 3 with errors, 4 when the plug-in can't be had.\n";

struct Args {
    std::vector<std::string> positional;
    std::map<std::string, std::string> options;
    bool help = false;
};

bool parse(int argc, char** argv, Args& a, std::string& error) {
    static const char* const kValued[] = {
        "--plugin", "--delims", "--sample-output", "--row", "--token", "--columns",
        "--widths", "--xpath",  "--xid",           "--script", "--variable", "--column",
        "--group",  "--format", "--type",          "--out", "--study", "--analysis", "--tags"};
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i], value;
        if (arg == "-h" || arg == "--help") {
            a.help = true;
            continue;
        }
        if (arg.size() < 2 || arg.compare(0, 2, "--") != 0) {
            a.positional.push_back(arg);
            continue;
        }
        if (auto eq = arg.find('='); eq != std::string::npos) {
            value = arg.substr(eq + 1);
            arg = arg.substr(0, eq);
        } else {
            bool known = false;
            for (const char* v : kValued) known = known || arg == v;
            if (!known) {
                error = "unknown option '" + arg + "'";
                return false;
            }
            if (i + 1 >= argc) {
                error = arg + " needs a value";
                return false;
            }
            value = argv[++i];
        }
        a.options[arg] = value;
    }
    return true;
}

int usage(const std::string& command, const std::string& what) {
    std::fprintf(stderr, "portal-run %s: %s\nTry 'portal-run %s --help'.\n", command.c_str(),
                 what.c_str(), command.c_str());
    return kExitUsage;
}

// A whole number of 1 or more, or 0 with a message.
int positive(const Args& a, const std::string& key, std::string& error) {
    auto it = a.options.find(key);
    if (it == a.options.end()) return 0;
    char* end = nullptr;
    const long n = std::strtol(it->second.c_str(), &end, 10);
    if (it->second.empty() || *end || n < 1 || n > 1000000000) {
        error = key + " needs a whole number of 1 or more, not '" + it->second + "'";
        return 0;
    }
    return static_cast<int>(n);
}

std::string option(const Args& a, const std::string& key) {
    auto it = a.options.find(key);
    return it == a.options.end() ? std::string() : it->second;
}

// A plug-in, a host without a design, and the study's portal; torn down in
// the reverse order.
class Session {
public:
    bool open(const std::string& pluginPath, const Study& study, std::string& error) {
        if (!plugin_.open(pluginPath, error)) return false;
        host_ = std::make_unique<RunHost>(study, study.settings, plugin_.folder(), nullptr);
        portal_ = plugin_.create(*host_, study.portal);
        if (!portal_) error = "the plug-in " + pluginPath + " has no portal named '" + study.portal + "'";
        return portal_ != nullptr;
    }
    ~Session() {
        portal_.reset();
        host_.reset();
    }
    MOSAQ::Portals::IPortal& portal() { return *portal_; }

private:
    Plugin plugin_;
    std::unique_ptr<RunHost> host_;
    std::unique_ptr<MOSAQ::Portals::IPortal> portal_;
};

bool loadOrSay(const std::string& path, Study& study, bool tagsMayBeMissing = false) {
    try {
        study = loadStudy(path, tagsMayBeMissing);
        return true;
    } catch (const StudyError& e) {
        std::fprintf(stderr, "portal-run: %s\n", e.what());
        return false;
    }
}

int inspectMain(const Args& a, const std::string& pluginPath) {
    if (a.positional.size() != 1) return usage("inspect", "give one file");
    const std::string& path = a.positional.front();
    FileKind kind;
    std::string error;
    if (!fileKind(path, kind, error)) {
        std::fprintf(stderr, "portal-run inspect: %s\n", error.c_str());
        return kExitStudy;
    }
    bool ok = false;
    std::ostringstream out;
    if (kind == FileKind::Sdf) {
        Study study;
        Session session;
        if (!session.open(pluginPath, study, error)) {
            std::fprintf(stderr, "portal-run: %s\n", error.c_str());
            return kExitPlugin;
        }
        ok = inspectSdf(session.portal(), path, out, error);
    } else if (kind == FileKind::Xml) {
        ok = inspectXml(path, out, error);
    } else {
        const std::string delims = a.options.count("--delims") ? option(a, "--delims")
                                                               : kDefaultDelimiters;
        ok = inspectText(path, delims, out, error);
    }
    if (!ok) {
        std::fprintf(stderr, "portal-run inspect: %s\n", error.c_str());
        return kExitStudy;
    }
    std::fputs(out.str().c_str(), stdout);
    return kExitOk;
}

int checkMain(const Args& a, const std::string& pluginPath) {
    if (a.positional.size() != 1) return usage("check", "give one study file");
    Study study;
    if (!loadOrSay(a.positional.front(), study)) return kExitStudy;
    Session session;
    std::string error;
    if (!session.open(pluginPath, study, error)) {
        std::fprintf(stderr, "portal-run: %s\n", error.c_str());
        return kExitPlugin;
    }
    CheckOptions options;
    options.sampleOutputDir = option(a, "--sample-output");
    const auto findings = checkStudy(session.portal(), study, options);
    const int errors = printFindings(findings, stdout);
    std::printf("%s: %d error%s, %d warning%s\n", study.file.c_str(), errors, errors == 1 ? "" : "s",
                static_cast<int>(findings.size()) - errors,
                findings.size() - static_cast<std::size_t>(errors) == 1 ? "" : "s");
    return errors ? kExitStudy : kExitOk;
}

int bindTemplateMain(const Args& a, const std::string& pluginPath) {
    if (a.positional.size() != 2) return usage("bind", "bind template needs one template");
    TemplateRequest r;
    r.templatePath = a.positional[1];
    r.outPath = option(a, "--out");
    r.analysis = option(a, "--analysis");
    r.tagsPath = option(a, "--tags");
    if (r.outPath.empty()) return usage("bind", "bind template needs --out FILE");
    Study study;
    const bool haveStudy = a.options.count("--study") != 0;
    if (haveStudy && !loadOrSay(option(a, "--study"), study, true)) return kExitStudy;
    Session session;
    std::string error, done;
    if (!session.open(pluginPath, study, error)) {
        std::fprintf(stderr, "portal-run: %s\n", error.c_str());
        return kExitPlugin;
    }
    if (!bindTemplate(session.portal(), haveStudy ? &study : nullptr, r, done, error)) {
        std::fprintf(stderr, "portal-run bind: %s\n", error.c_str());
        return kExitStudy;
    }
    std::printf("%s\n", done.c_str());
    return kExitOk;
}

bool bindRequest(const Args& a, BindRequest& r, std::string& error) {
    r.file = a.positional[1];
    r.name = a.positional.size() > 2 ? a.positional[2] : "";
    r.format = option(a, "--format");
    r.type = option(a, "--type");
    const bool mark = a.options.count("--row") != 0, xml = a.options.count("--xpath") != 0,
               script = a.options.count("--script") != 0,
               portal = a.options.count("--variable") != 0;
    if (mark + xml + script + portal != 1) {
        error = "give one place: --row, --xpath, --variable or --script";
        return false;
    }
    if (a.positional.size() != (script ? 2u : 3u)) {
        error = script ? "a script names its own parameters: give STUDY and FILE only"
                       : "give STUDY, FILE and NAME";
        return false;
    }
    if (mark) {
        r.row = positive(a, "--row", error);
        r.token = positive(a, "--token", error);
        if (!error.empty()) return false;
        r.kind = a.options.count("--widths") || a.options.count("--columns") ? BindKind::Fixed
                                                                              : BindKind::Free;
        r.delims = r.kind == BindKind::Fixed ? option(a, "--widths") : option(a, "--delims");
        if (a.options.count("--columns")) {
            const std::string c = option(a, "--columns");
            if (std::sscanf(c.c_str(), "%d-%d", &r.firstColumn, &r.lastColumn) != 2 ||
                r.firstColumn < 1) {
                error = "--columns needs A-B, such as 11-20, not '" + c + "'";
                return false;
            }
        }
    } else if (xml) {
        r.kind = BindKind::Xml;
        r.xpath = option(a, "--xpath");
        r.xid = option(a, "--xid");
    } else if (script) {
        r.kind = BindKind::Script;
        std::ifstream in(option(a, "--script"), std::ios::binary);
        if (!in) {
            error = "cannot read the script " + option(a, "--script");
            return false;
        }
        r.script.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    } else {
        r.kind = BindKind::Portal;
        r.variable = option(a, "--variable");
        if (a.options.count("--group")) r.group = option(a, "--group");
        if (a.options.count("--column") && !(r.column = positive(a, "--column", error))) return false;
    }
    return true;
}

int bindMain(const Args& a, const std::string& pluginPath) {
    if (!a.positional.empty() && a.positional.front() == "template")
        return bindTemplateMain(a, pluginPath);
    if (a.positional.size() < 2) return usage("bind", "give STUDY, FILE and NAME");
    BindRequest r;
    std::string error, done;
    if (!bindRequest(a, r, error)) return usage("bind", error);
    Study study;
    if (!loadOrSay(a.positional.front(), study, true)) return kExitStudy;
    Session session;
    if (!session.open(pluginPath, study, error)) {
        std::fprintf(stderr, "portal-run: %s\n", error.c_str());
        return kExitPlugin;
    }
    std::vector<Finding> findings;
    const bool ok = bindTag(session.portal(), study, r, done, error, findings);
    printFindings(findings, stderr);
    if (!ok) {
        std::fprintf(stderr, "portal-run bind: %s\n", error.c_str());
        return kExitStudy;
    }
    std::printf("%s\n", done.c_str());
    return kExitOk;
}

}  // namespace

bool isSubcommand(const std::string& word) {
    return word == "inspect" || word == "bind" || word == "check";
}

int subcommandMain(int argc, char** argv, const std::string& defaultPlugin) {
    const std::string command = argv[0];
    Args a;
    std::string error;
    if (!parse(argc, argv, a, error)) return usage(command, error);
    if (a.help) {
        std::fputs(command == "inspect" ? kInspectUsage
                   : command == "bind"  ? kBindUsage
                                        : kCheckUsage,
                   stdout);
        return kExitOk;
    }
    const std::string plugin = a.options.count("--plugin") ? option(a, "--plugin") : defaultPlugin;
    if (command == "inspect") return inspectMain(a, plugin);
    if (command == "check") return checkMain(a, plugin);
    return bindMain(a, plugin);
}

int checkBeforeRun(const std::string& pluginPath, const Study& study,
                   const std::string& sampleOutputDir) {
    Session session;
    std::string error;
    if (!session.open(pluginPath, study, error)) {
        std::fprintf(stderr, "portal-run: %s\n", error.c_str());
        return kExitPlugin;
    }
    CheckOptions options;
    options.sampleOutputDir = sampleOutputDir;
    const std::vector<Finding> findings = checkStudy(session.portal(), study, options);
    const int errors = printFindings(findings, stderr);
    if (errors) {
        std::fprintf(stderr, "portal-run: %d error%s in the study's bindings; nothing was run "
                             "(portal-run check %s tells the same)\n",
                     errors, errors == 1 ? "" : "s", study.file.c_str());
        return kExitStudy;
    }
    return kExitOk;
}

}  // namespace portalrun
