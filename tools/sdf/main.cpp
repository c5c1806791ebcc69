// sdf: a command-line tool for SDF files. This file holds the command table,
// the usage texts and the parsing of the command line; the commands live in
// files of their own.
//
// The library is set up once before any command: its messages go to standard
// error, and reading takes no lock file, so that looking at a file leaves no
// trace beside it.
#include <cstring>

#include "sdf.h"
#include "sdf_tool.h"

namespace {

using namespace sdftool;

struct Option {
    const char* name;
    bool takesValue;
};

struct Command {
    const char* name;
    int (*run)(const Args&);
    size_t minArgs, maxArgs;  // positional arguments
    std::vector<Option> options;
    const char* usage;
};

const char* const kExitCodes =
    "Exit codes:\n"
    "  0  success (check: every file is sound)\n"
    "  1  a file, a variable or an output could not be read or written, a\n"
    "     check failed, or a lock could not be deleted; the library's\n"
    "     message precedes the tool's own on standard error\n"
    "  2  the command line is wrong (salvage: also an OUT that exists without\n"
    "     --force, or that is IN itself)\n"
    "  3  salvage: OUT was written, but some variables, units or descriptions\n"
    "     were lost, part of IN could not be read, or IN was marked dirty (what\n"
    "     its cut commit was writing may mix old and new versions)\n";

const std::vector<Command>& commands() {
    static const std::vector<Command> table = {
        {"info", cmdInfo, 1, 1, {},
         "usage: sdf info FILE\n\n"
         "Shows the header: format version, byte order, name case, chunk size and\n"
         "count, the time of the last write, the number of variables by kind, and\n"
         "who holds the file's lock.\n"},
        {"ls", cmdLs, 1, 2, {{"--tags", true}},
         "usage: sdf ls FILE [TEMPLATE] [--tags TAGS]\n\n"
         "Lists the variables matching TEMPLATE (default \"*\"; \"*\" any text, \"?\" one\n"
         "character, \"#\" a number): name, type, shape (extents, first dimension\n"
         "first), units and description.\n"
         "  --tags TAGS  filter and decode name tags such as \":speed_100\": TAGS is a\n"
         "               comma-separated list, optionally led by \"+one_of\" or\n"
         "               \"+all_of\"; the last column then shows \"tag=value\" pairs\n"},
        {"dump", cmdDump, 1, SIZE_MAX, {},
         "usage: sdf dump FILE [NAME|TEMPLATE...]\n\n"
         "Prints the values of the named variables (default: all). A line per\n"
         "variable gives name, type and shape, units in brackets and the\n"
         "description; the values follow, indented. A 2-D array is printed a row\n"
         "per first index ([i,*]), higher ranks a line per combination of the\n"
         "other indices. Numbers are printed so that they read back exactly.\n"},
        {"export", cmdExport, 1, SIZE_MAX, {{"--csv", false}, {"--json", false}, {"-o", true}},
         "usage: sdf export FILE [--json|--csv] [-o OUT] [NAME|TEMPLATE...]\n\n"
         "Writes the named variables (default: all) as JSON (the default) or CSV\n"
         "to OUT or standard output. Nothing is written when a variable can't be\n"
         "read.\n"
         "  JSON: {\"file\", \"variables\": [{\"name\", \"type\", \"dims\", \"units\",\n"
         "        \"description\", \"value\"}]}; an array's value is nested with the\n"
         "        first dimension outermost; complex numbers are [re, im]; NaN and\n"
         "        infinities are null.\n"
         "  CSV:  header \"name,type,units,index,value\", a row per element; index\n"
         "        is the element's indices joined by \";\"; fields with commas,\n"
         "        quotes or line breaks are quoted, quotes doubled.\n"},
        {"check", cmdCheck, 1, SIZE_MAX, {},
         "usage: sdf check FILE...\n\n"
         "Opens each file as the library does (header, guard word, version, block\n"
         "and variable tables) and reads every variable whole. Prints \"ok\" per\n"
         "sound file; for a bad one the library's message and exit code 1.\n"},
        {"locks", cmdLocks, 1, SIZE_MAX, {{"--delete", false}, {"--force", false}},
         "usage: sdf locks [--delete [--force]] FILE...\n\n"
         "Shows who holds each file: a writer or a reader with the lock file's\n"
         "\"Created ...\" line, a lock file that no longer counts (stale, or its\n"
         "process has ended), or none.\n"
         "  --delete  removes FILE.lock and FILE.lock.lock; a lock that still\n"
         "            counts is kept unless --force is given too\n"},
        {"units", cmdUnits, 1, 2, {},
         "usage: sdf units FROM [TO]\n\n"
         "With one unit expression: its dimension text in base units, and the scale\n"
         "and offset that lead to them (value_base = value * scale + offset). With\n"
         "two: the conversion from FROM to TO (value_TO = value_FROM * scale +\n"
         "offset). Units files named by ZU_UNITS_LOCAL and ZU_UNITS_FILE count;\n"
         "see docs/units-files.md. Examples: sdf units kg.m/s^2; sdf units degC degF\n"},
        {"calc", cmdCalc, 2, SIZE_MAX, {},
         "usage: sdf calc FILE EXPR...\n\n"
         "Opens FILE for writing and runs each expression on it in turn (see\n"
         "docs/expressions.md): assignments change variables, every other item's\n"
         "value is stored as _$1, _$2, ... and printed with its type, shape and\n"
         "units. The file is closed and committed after the last expression, or\n"
         "after the first that fails (exit code 1, with the library's message);\n"
         "what the expressions before it wrote stays.\n"
         "Example: sdf calc out.sdf \"c = a*b + a/b\" \"mean = (a + b) / 2 [m]\"\n"},
        {"salvage", cmdSalvage, 2, 2, {{"--force", false}},
         "usage: sdf salvage [--force] IN OUT\n\n"
         "Copies every variable that can still be read from IN, a file the library\n"
         "refuses (marked dirty by a writer that died, or damaged), into the new\n"
         "file OUT, and reports each variable as recovered or lost with the reason.\n"
         "The dirty flag is ignored; every table, slot, chain and length is checked\n"
         "before it is used. Where two records claim the same name or blocks (a\n"
         "commit cut short), the one written last is kept. IN is never changed.\n"
         "  --force  replace OUT when it exists (never when OUT is IN)\n"},
    };
    return table;
}

void usage(FILE* out) {
    std::fprintf(out,
                 "usage: sdf COMMAND [OPTIONS] FILE [ARGS]\n"
                 "       sdf --help | sdf COMMAND --help\n\n"
                 "Looks into SDF files. Files are opened for reading only; only\n"
                 "\"locks --delete\", the new file of \"salvage\" and \"calc\" change\n"
                 "anything on disk.\n\n"
                 "Commands:\n"
                 "  info    header, byte order, version and counts\n"
                 "  ls      names, types, dimensions, units (with a template)\n"
                 "  dump    values of some variables, or of all\n"
                 "  export  variables as JSON or CSV\n"
                 "  check   the library's open-time checks, plus a read of every value\n"
                 "  locks   lock-file information, and deletion\n"
                 "  units   a unit expression in base units, or a unit conversion\n"
                 "  salvage copy what can be read from a refused file into a new one\n"
                 "  calc    run expressions on a file (it is opened for writing)\n\n%s",
                 kExitCodes);
}

// Splits argv into positional arguments and the command's options.
bool parse(const Command& cmd, int argc, char** argv, Args& a) {
    bool optionsDone = false;
    for (int i = 2; i < argc; i++) {
        std::string arg = argv[i];
        if (optionsDone || arg.size() < 2 || arg[0] != '-') {
            a.positional.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsDone = true;
            continue;
        }
        const Option* opt = nullptr;
        for (const Option& o : cmd.options)
            if (arg == o.name) opt = &o;
        if (!opt) {
            complain("%s: unknown option %s", cmd.name, arg.c_str());
            return false;
        }
        if (opt->takesValue) {
            if (i + 1 >= argc) {
                complain("%s: %s needs a value", cmd.name, opt->name);
                return false;
            }
            a.options[opt->name] = argv[++i];
        } else {
            a.options[opt->name] = "";
        }
    }
    if (a.positional.size() < cmd.minArgs || a.positional.size() > cmd.maxArgs) {
        complain("%s: wrong number of arguments", cmd.name);
        return false;
    }
    return true;
}

}  // namespace

namespace sdftool {
std::string Args::get(const char* name) const {
    auto it = options.find(name);
    return it == options.end() ? std::string() : it->second;
}
}  // namespace sdftool

int main(int argc, char** argv) {
    if (argc < 2) {
        usage(stderr);
        return kUsage;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h" || name == "help") {
        usage(stdout);
        return kOk;
    }
    const Command* cmd = nullptr;
    for (const Command& c : commands())
        if (name == c.name) cmd = &c;
    if (!cmd) {
        complain("unknown command \"%s\"; see sdf --help", name.c_str());
        return kUsage;
    }
    for (int i = 2; i < argc; i++) {
        if (!std::strcmp(argv[i], "--")) break;
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::printf("%s\n%s", cmd->usage, kExitCodes);
            return kOk;
        }
    }
    Args a;
    if (!parse(*cmd, argc, argv, a)) {
        std::fprintf(stderr, "%s", cmd->usage);
        return kUsage;
    }
    Sdf_Set_Opts("Error_Out=StdErr,No_Read_Lock=Yes");
    return cmd->run(a);
}
